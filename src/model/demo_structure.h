#pragma once
#include "model/structure.h"

// The demo device: a structure at 127.0.0.1:1502, unit 1, with one detail of every kind of point
// (coil, discrete input, floats in both word orders, 16/32/64-bit integers, writable registers, a
// string and raw registers). Its texts are German data in both interface languages; ids are 0
// until the store hands them out.
ModbusStructure BuildDemoStructure();

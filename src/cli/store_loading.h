#pragma once
#include "model/structure_store.h"

namespace cli {
// Loads the store's file; false after a one-line error naming the file when a number in it cannot
// be read (a missing file is an empty store, not an error).
bool LoadStoreOrReport(StructureStore& store);
}  // namespace cli

#pragma once
// A slave's register image as a text file, so that a device's state can be kept and replayed: one
// value per line, "table;address;value", the table one of coil, discrete, input, holding; the
// address decimal or 0x hexadecimal; a bit 0 or 1, a register 0..65535 (decimal or 0x). Blank lines
// and lines starting with '#' are skipped; there is no header.
#include <cstdint>
#include <string>
#include <vector>

#include "slave/slave_register_image.h"

namespace sim {

enum class ImageTable { Coil, Discrete, Input, Holding };

struct ImageValue {
    ImageTable table = ImageTable::Holding;
    uint16_t address = 0;
    uint16_t value = 0;
};

const char* ImageTableName(ImageTable table);

// Parses the text; false with `error` = "line N: what was expected" at the first bad line.
bool ParseImageText(const std::string& text, std::vector<ImageValue>& values, std::string& error);
// Writes the values into the image's four tables.
void SeedImage(SlaveRegisterImage& image, const std::vector<ImageValue>& values);
// Every non-zero value of the four tables, in the order coil, discrete, input, holding, each by
// ascending address, as the file holds them ("holding;100;4660\n").
std::string ImageText(const SlaveRegisterImage& image);

}  // namespace sim

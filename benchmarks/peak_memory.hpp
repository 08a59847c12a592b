// The largest amount of memory that a program had from operator new at once.
#pragma once

#include <cstdint>

// Starts at what is allocated now, which does not count.
void start_peak_memory();
std::int64_t peak_memory();

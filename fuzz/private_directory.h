// A directory of the fuzzing process, in memory where the system has such a place.
#pragma once

#include <cstdint>
#include <span>
#include <string>

// Its path: fresh under /dev/shm, or under the directory for temporary files without one. It goes
// with the process.
const std::string& PrivateDirectory();

// Takes everything out of it.
void EmptyPrivateDirectory();

// Writes a file; its directory must exist. Ends the process when it cannot.
void WriteInput(const std::string& path, std::span<const uint8_t> bytes);

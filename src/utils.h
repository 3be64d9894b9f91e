// System helpers: time stamps, printf-style formatting into strings, the program's own name,
// mapping a whole file read-only, and splitting text. None of them prints; each reports failure
// through its result and leaves errno as the failed system call set it.
#pragma once

#include <sys/time.h>

#include <cstddef>
#include <string>
#include <vector>

// The current local time: with `format` "YYYY/MM/DD hh:mm:ss uuuuuu" (26 characters, microseconds
// last), without it "YYYYMMDDhhmmss" (14 digits, fit for a file name).
std::string GetSystemTime(bool format);

// `timestamp` in local time, in the 26-character form of GetSystemTime(true).
std::string SystemTimeFormat(timeval& timestamp);

// printf into a string. The result has the length that the format needs, however long.
std::string StrFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Sets `appName` to the file name of the running executable, without its directory; to the empty
// text when /proc/self/exe cannot be read.
void getAppFileName(std::string& appName);

// Appends every entry of this process's environment to `info`, each followed by a line feed.
void GetEnvironment(std::string& info);

// Maps the whole of `fname` read-only and shared. On success stores the address in `*mmap_ptr` and
// the file's size in bytes in `*mmap_size`; the caller unmaps with MemoryUnmapFile. False when an
// output is null or the file cannot be opened or measured; the outputs then stay as they were.
//
// A mapping that the system refuses (an empty file, a directory) is a success with MAP_FAILED as
// address: only null counts as failure here, on purpose, and callers that look at the bytes test
// for it.
bool MemoryMapFile(const char* fname, void** mmap_ptr, size_t* mmap_size);

// True when the range was unmapped.
bool MemoryUnmapFile(const void* mmap_ptr, size_t mmap_size);

// Maps the pages of a mapped file that hold `size` bytes at `ptr`, in one go and before they are
// touched. Only a matter of speed: the kernel maps the pages around a first touch, 64 KiB at most,
// and takes a fault for each. Nothing happens where it cannot (Linux before 5.14).
void MapPages(const void* ptr, size_t size);

// Appends the pieces of `str` between occurrences of the whole string `del` to `out`. Empty pieces
// are kept (also a leading and a trailing one); blanks (' ' only) are stripped from both ends of
// each. An empty `str` or `del` appends nothing.
void SplitStr(const std::string& str, const std::string& del, std::vector<std::string>& out);

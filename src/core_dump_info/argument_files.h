// The argument files of a queue: "<kernel>_args" for each kernel that its ring dispatches.
//
// A kernel has one file, however often the ring dispatches it: that of its highest slot. Writing it
// anew for every slot took 20 s for 8 full rings on ext4, which sends a file to the disk each time
// it is replaced. So files wait here until the ring is done, or until there are many.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

class ArgumentFiles {
 public:
  explicit ArgumentFiles(std::string dir);
  ~ArgumentFiles();  // writes what still waits
  ArgumentFiles(const ArgumentFiles&) = delete;
  ArgumentFiles& operator=(const ArgumentFiles&) = delete;

  // Whether a kernel's name, which is the core file's, leads nowhere but into the queue's own
  // directory, and is not too long for its file system.
  bool CanHold(std::string_view kernel) const;

  // Sets the content of the kernel's file, whose name CanHold.
  void Set(std::string_view kernel, std::string_view arguments);

 private:
  void Write();

  const std::string dir_;
  const size_t longest_name_;
  std::map<std::string, std::string> waiting_;  // by file name
};

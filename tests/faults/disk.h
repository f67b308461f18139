// Disks in files, and the file systems on them.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// A kind of file system that a machine is tried on.
struct disk_format {
    std::string name;                // as mount(2) calls it
    off_t size;                      // of the disk, in bytes
    std::vector<std::string> maker;  // the command that makes it, without the file
    std::string options;             // of mount(2)
};

// Throws std::runtime_error for a name that is not ext4, xfs or btrfs.
const disk_format &format_named(const std::string &name);

// Makes an empty file system in a new file. Throws std::runtime_error.
void make_file_system(const disk_format &format, const std::string &file);

// A file system of a file, mounted by way of a loop device, as long as the object exists. The
// device goes with the mount, whatever becomes of this process.
class mounted_disk {
 public:
    // With `direct` what is read and written goes past the kernel's copy of the file. Throws
    // std::system_error, also when the file system is too damaged to be mounted.
    mounted_disk(const disk_format &format, const std::string &file, const std::string &directory,
                 bool direct = false);
    ~mounted_disk();
    mounted_disk(const mounted_disk &) = delete;
    mounted_disk &operator=(const mounted_disk &) = delete;

    const std::string &root() const {
        return directory_;
    }

 private:
    std::string directory_;
};

// Makes the node of a device that has none: a throwaway root has few. Throws std::system_error.
void make_device(const std::string &path, mode_t type, unsigned major_number,
                 unsigned minor_number);

// Copies a file over another one, which is made when it is missing. Zeros become holes. What the
// other one had is gone. Throws std::system_error.
void copy_with_holes(const std::string &from, const std::string &to);

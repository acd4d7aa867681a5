// Replacing a file as a whole: whoever opens its name, at any time and after any crash, finds the
// old file or the new one, complete.
//
//     Replacement file;
//     if (file.open(path) != 0 || write_all(file.descriptor(), bytes, n) != 0 ||
//         file.commit() != 0) ...                     // errno; the old file is as it was
//
// The new file is made in the folder of the old one, synced, and renamed over it; then the folder
// is synced. A link stays what it is: the file that it leads to is replaced. The new file gets the
// mode of the old one and, as far as the process may, its owner and group. Other names of the old
// file (hard links) keep the old contents.
#pragma once

#include <sys/stat.h>

#include <string_view>
#include <utility>

#include "base/memory.hpp"
#include "base/posix.hpp"

namespace morva {

class Replacement {
  public:
    Replacement() = default;
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    // Removes the new file, unless it has taken its place. Leaves errno alone.
    ~Replacement();

    // Makes the new file, empty, under a name that nobody can guess. `path` must name a regular
    // file that the process may write, or nothing yet. 0, or -1 with errno.
    int open(const char* path);

    // The new file, open for reading and writing. It may be taken over, to keep it open or locked.
    int descriptor() const { return file_.get(); }
    Descriptor take_descriptor() { return std::move(file_); }

    // Syncs the new file and puts it in place. 0, or -1 with errno.
    int commit();

    // True once the name leads to the new file. When commit failed all the same, the folder could
    // not be synced: a power cut may bring the old file back.
    bool in_place() const { return in_place_; }

  private:
    int examine_old(struct stat* old, bool* exists) const;
    int make_new(mode_t mode);

    Descriptor folder_;
    Descriptor file_;
    String name_;            // of the file that is replaced, in the folder
    String temporary_name_;  // of the new file; empty when there is none
    bool in_place_ = false;
};

// Replaces the contents of a file. 0, or -1 with the reason registered.
int replace_file(const char* path, std::string_view bytes);

}  // namespace morva

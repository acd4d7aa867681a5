// Mappings of list files: made, grown in place, and released.
#pragma once

#include <cstddef>

#include "morva/tbl.h"

namespace morva::list {

// Maps the whole of a list file: shared, readable and, when `writable`, writable and able to grow
// without moving. `wanted` is the address to take if it is free, or null: processes that map a file
// at the same address agree on the pointers in its record. Null, with errno, when it fails.
char* map_file(int fd, std::size_t size, bool writable, char* wanted);
int unmap_file(char* mapaddr, std::size_t size, bool writable);

// Lengthens the file of a list by n slots, or ends the process. Changes maplen, not alloc_end.
void extend_file(Tbl* tbl, int64_t n);

// The descriptor of a list in a file.
int file_of(const Tbl* tbl);

// Where this process keeps the buffer of deltbl. The record of a writable list is no place for it:
// another process that has the file open would use and free an address of this one.
char*& deleted_buffer(Tbl* tbl);

// Closes and unmaps the file of a list, and frees the record of a read-only one.
void release_file(Tbl* tbl);

// The same for a writable list whose record is gone, because another process cut off its file.
void release_cut_file(Tbl* tbl);

}  // namespace morva::list

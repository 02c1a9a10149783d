// The file system as the calibration cache needs it: the user's data
// folder, folders made on demand, reads of files of a known length, and
// writes that either land complete under their name or leave nothing behind.
#ifndef QOR_PLATFORM_FOLDERS_H
#define QOR_PLATFORM_FOLDERS_H

#include <cstddef>
#include <string>

namespace qor::folders {

// $XDG_DATA_HOME when it is an absolute path, else $HOME/.local/share (the
// home of the user's account when HOME is unset). Empty when no home is
// known. No trailing separator.
std::string DataHome();

// Creates the folder and any missing parents; true when it exists afterwards.
bool MakeFolders(const std::string& path);

// Reads a regular file of exactly `size` bytes into dst. False when the
// path names no readable regular file (missing, a folder, no permission),
// or one of another length, which is left unread; false too when the read
// stops short.
bool ReadExactFile(const std::string& path, void* dst, std::size_t size);

// Writes `size` bytes under a temporary name beside `path`, then renames it
// over `path`. On any failure the temporary file is removed and `path` keeps
// what it held.
bool WriteFileAtomic(const std::string& path, const void* data, std::size_t size);

}  // namespace qor::folders

#endif

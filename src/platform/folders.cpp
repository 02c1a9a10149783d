#include "folders.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qor::folders {
namespace {

bool IsFolder(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string Home() {
    const char* home = std::getenv("HOME");
    if (home && *home) return home;
    const passwd* account = getpwuid(getuid());
    return account && account->pw_dir ? account->pw_dir : "";
}

// Reads until `size` bytes came or the file ended; the count read.
std::size_t ReadAll(int fd, char* dst, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = read(fd, dst + done, size - done);
        if (n > 0) {
            done += static_cast<std::size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

bool WriteAll(int fd, const char* src, std::size_t size) {
    while (size > 0) {
        const ssize_t n = write(fd, src, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        src += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

std::string DataHome() {
    const char* xdg = std::getenv("XDG_DATA_HOME");
    if (xdg && xdg[0] == '/') return xdg;
    const std::string home = Home();
    return home.empty() ? "" : home + "/.local/share";
}

bool MakeFolders(const std::string& path) {
    if (path.empty()) return false;
    // Each prefix that ends before a separator, then the whole path.
    for (std::size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1))
        mkdir(path.substr(0, end).c_str(), 0755);
    mkdir(path.c_str(), 0755);
    return IsFolder(path);
}

bool ReadExactFile(const std::string& path, void* dst, std::size_t size) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat info;
    const bool fits = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && static_cast<std::size_t>(info.st_size) == size;
    const bool read = fits && ReadAll(fd, static_cast<char*>(dst), size) == size;
    close(fd);
    return read;
}

bool WriteFileAtomic(const std::string& path, const void* data, std::size_t size) {
    std::string temporary = path + ".XXXXXX";
    const int fd = mkstemp(temporary.data());
    if (fd < 0) return false;
    bool written = WriteAll(fd, static_cast<const char*>(data), size);
    written = fchmod(fd, 0644) == 0 && fsync(fd) == 0 && written;
    written = close(fd) == 0 && written;
    if (written && rename(temporary.c_str(), path.c_str()) == 0) return true;
    unlink(temporary.c_str());
    return false;
}

}  // namespace qor::folders

#include "confined.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <utility>

namespace citation_check::confined {

namespace {

// The name under which the kernel tells where an open file is, and under which the same file can be opened again. It
// is the thread's own: a thread may have a file table that it does not share with its process.
std::string link_of(const Descriptor& descriptor) {
    return "/proc/thread-self/fd/" + std::to_string(descriptor.number());
}

// A magic link, such as /proc/PID/root, can lead into another mount namespace, where a path that lies in the root names
// another file. Kernels before 5.6, and some sandboxes, have no call that refuses it.
Descriptor open_path(const std::string& path) {
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_NO_MAGICLINKS;
    const long number = syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof(how));
    if (number >= 0 || (errno != ENOSYS && errno != EPERM)) return Descriptor(static_cast<int>(number));
    return Descriptor(open(path.c_str(), O_PATH | O_CLOEXEC));
}

}  // namespace

Descriptor::Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}

Descriptor::~Descriptor() {
    if (number_ < 0) return;
    const int reason = errno;
    close(number_);
    errno = reason;
}

std::optional<Location> locate(const std::string& path) {
    Descriptor descriptor = open_path(path);
    if (descriptor.number() < 0) return {};
    struct stat status {};
    if (fstat(descriptor.number(), &status) != 0) return {};
    std::array<char, PATH_MAX> target;
    const ssize_t length = readlink(link_of(descriptor).c_str(), target.data(), target.size());
    if (length < 0) return {};
    // A path that fills the buffer may have been cut short, and one that is not absolute is nowhere in this tree.
    if (static_cast<std::size_t>(length) == target.size() || target[0] != '/') return {};
    std::string own_path(target.data(), static_cast<std::size_t>(length));
    const bool is_regular = S_ISREG(status.st_mode);
    return Location{std::move(descriptor), std::move(own_path), is_regular, static_cast<std::size_t>(status.st_size)};
}

bool is_inside(std::string_view path, std::string_view root) {
    if (root == "/") return true;
    if (!path.starts_with(root)) return false;
    return path.size() == root.size() || path[root.size()] == '/';
}

std::optional<std::size_t> read_into(const Location& location, std::span<char> room) {
    const Descriptor file(open(link_of(location.descriptor).c_str(), O_RDONLY | O_CLOEXEC));
    if (file.number() < 0) return {};
    std::size_t filled = 0;
    while (filled < room.size()) {
        const ssize_t count = read(file.number(), room.data() + filled, room.size() - filled);
        if (count < 0) return {};
        filled += static_cast<std::size_t>(count);
        // A read that leaves room and brings what the file is known to have has met its end.
        if (count == 0 || filled == location.size) break;
    }
    return filled;
}

std::optional<std::string> read_all(const Location& location) {
    std::string bytes(4096 + 2 * location.size, '\0');
    while (true) {
        const std::optional<std::size_t> filled = read_into(location, bytes);
        if (!filled) return {};
        if (*filled < bytes.size()) {
            bytes.resize(*filled);
            return bytes;
        }
        bytes.resize(2 * bytes.size());
    }
}

}  // namespace citation_check::confined

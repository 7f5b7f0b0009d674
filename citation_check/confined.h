#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

// Files that are known to lie inside a root before a byte of them is read. Nothing here needs the interpreter's lock.
// A failed operation gives nothing and leaves its reason in `errno`.
namespace citation_check::confined {

// An open descriptor, closed at the end.
class Descriptor {
  public:
    explicit Descriptor(int number) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    // Leaves `errno` as it is.
    ~Descriptor();

    int number() const noexcept { return number_; }

  private:
    int number_;
};

// What a path led to when it was opened. The descriptor holds on to that very file, whatever is renamed or put in its
// place later, and was opened without any effect on it: a FIFO does not block, a device is not touched.
struct Location {
    Descriptor descriptor;
    std::string path;  // the file's own, without links
    bool is_regular;
    std::size_t size;
};

// Opens what `path` leads to.
std::optional<Location> locate(const std::string& path);

// Whether `path` is `root` or lies below it, by their components; both are absolute paths without links.
bool is_inside(std::string_view path, std::string_view root);

// Reads a regular file into `room` until that is full or the file ends; how many bytes came.
std::optional<std::size_t> read_into(const Location& location, std::span<char> room);

// All bytes of a regular file, however many there are by now.
std::optional<std::string> read_all(const Location& location);

}  // namespace citation_check::confined

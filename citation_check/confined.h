#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

// Files that are known to lie inside a root before a byte of them is read. Nothing here needs the interpreter's lock.
namespace citation_check::confined {

// An open descriptor, closed at the end.
class Descriptor {
  public:
    explicit Descriptor(int number) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
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

// Why nothing is there to be had.
enum class Failure { unusual, interrupted };

template <class Value>
struct Outcome {
    std::optional<Value> value;
    Failure failure = Failure::unusual;
};

// Opens what `path` leads to. `interrupted` when a signal came in between, `unusual` for every other failure.
Outcome<Location> locate(const std::string& path);

// Whether `path` is `root` or lies below it, by their components; both are absolute paths without links.
bool is_inside(std::string_view path, std::string_view root);

// Reads a regular file into `room` until that is full or the file ends; how many bytes came. The failures are those of
// `locate`.
Outcome<std::size_t> read_into(const Location& location, std::span<char> room);

// All bytes of a regular file, however many there are by now.
Outcome<std::string> read_all(const Location& location);

}  // namespace citation_check::confined

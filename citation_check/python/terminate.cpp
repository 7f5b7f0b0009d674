#include <cstdlib>
#include <exception>

// What runs when an exception finds no handler. The C++ library's own prints the exception's name first, and for that
// brings along a demangler that is larger than the rest of what this module uses of the library.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name is the library's
namespace __cxxabiv1 {

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name is the library's
extern std::terminate_handler __terminate_handler;
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name is the library's
std::terminate_handler __terminate_handler = std::abort;

}  // namespace __cxxabiv1

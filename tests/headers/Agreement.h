// The system's headers, held against a table.
//
// The files beside this one say what Apple's headers declare of all that the simulated Mac offers. They are compiled in
// both worlds: with Apple's headers when the program is built for the Mac, with the stand-ins when it is built for the
// simulated one. A difference between the two is an error in one of them. Nothing here runs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace agreement {

// A function's type without its exception specification: Apple's headers mark some functions as not throwing.
template <typename Function>
struct PlainFunction {
  using Type = Function;
};
template <typename Result, typename... Parameters>
struct PlainFunction<Result(Parameters...) noexcept> {
  using Type = Result(Parameters...);
};

// The integer type behind a type that is an enumeration in Apple's headers.
template <typename T, bool isEnumeration = std::is_enum_v<T>>
struct Plain {
  using Type = T;
};
template <typename T>
struct Plain<T, true> {
  using Type = std::underlying_type_t<T>;
};

}  // namespace agreement

// A constant's value, the sign included.
#define VALUE(name, value) static_assert(static_cast<long long>(name) == static_cast<long long>(value), #name)

// A function's type, in the words of its declaration: FUNCTION(CFRelease, void(CFTypeRef));
#define FUNCTION(name, ...) \
  static_assert(std::is_same_v<agreement::PlainFunction<decltype(name)>::Type, __VA_ARGS__>, #name)

// A variable's type, `const` included.
#define VARIABLE(name, ...) static_assert(std::is_same_v<decltype(name), __VA_ARGS__>, #name)

// What a type stands for.
#define TYPE(name, ...) static_assert(std::is_same_v<agreement::Plain<name>::Type, __VA_ARGS__>, #name)

// A type that is a pointer to something of its own.
#define REFERENCE(name) static_assert(std::is_pointer_v<name> && sizeof(name) == sizeof(void*), #name)

// A structure's member: its type and where it lies.
#define MEMBER(structure, name, offset, ...)                                                   \
  static_assert(std::is_same_v<decltype(structure::name), __VA_ARGS__>, #structure "." #name); \
  static_assert(offsetof(structure, name) == (offset), #structure "." #name)
#define SIZE(structure, size) static_assert(sizeof(structure) == (size), #structure)

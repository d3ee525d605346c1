#pragma once
/// A value, or why there is none.

#include <optional>
#include <string>
#include <utility>

namespace sim {

/// Why the program cannot go on: one line for a person (without line end) and the exit status that goes with it.
struct Failure {
    int status = 1;
    std::string text;
};

/// Either a `T` or a `Failure`.
template <typename T>
class Result {
public:
    Result(T good) : content(std::move(good)) {}     // NOLINT(google-explicit-constructor): reads as a value
    Result(Failure why) : reason(std::move(why)) {}  // NOLINT(google-explicit-constructor): reads as a value

    explicit operator bool() const { return content.has_value(); }
    T& operator*() { return *content; }
    const T& operator*() const { return *content; }
    T* operator->() { return &*content; }
    const T* operator->() const { return &*content; }
    /// Empty text while there is a value.
    const Failure& failure() const { return reason; }

private:
    std::optional<T> content;
    Failure reason;
};

}  // namespace sim

#pragma once

#include <stdexcept>

namespace pack {

/// A pack that cannot be written, or that is not what its index says; the text names the file and the cause.
class PackError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The same from those who know the bytes and not the file; the text names the cause alone.
class Damaged : public PackError {
public:
    using PackError::PackError;
};

}  // namespace pack

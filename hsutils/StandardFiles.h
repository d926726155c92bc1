#pragma once

#include <array>

/// Keeps what is opened while it lives from becoming the process's standard input, output or error where it
/// was started without one: the next thing printed would go into that file, or into shared memory. Something
/// that can be neither read nor written stands there meanwhile, so that to use them fails as before.
class StandardFiles {
public:
    StandardFiles();
    ~StandardFiles();
    StandardFiles(const StandardFiles&) = delete;
    StandardFiles& operator=(const StandardFiles&) = delete;

private:
    std::array<bool, 3> m_occupied{};
};

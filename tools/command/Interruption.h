#pragma once

/// Ctrl-C and SIGTERM while it lives: the first one is noted, so that what runs can be finished and what is
/// left told; the second of its kind ends the program at once. One at a time.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// Whether the first one has come. From any thread.
    static bool came();
};

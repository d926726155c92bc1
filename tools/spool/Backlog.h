#pragma once

#include <time.h>

#include <compare>
#include <cstddef>
#include <set>
#include <string>
#include <unordered_map>

/// A name that waits, and since when.
struct Waiting {
    timespec since{};
    std::string name;

    bool operator<(const Waiting& other) const;
};

/// The oldest names of a folder, in order, never more than a fixed number: what is younger stays in the
/// folder alone, and the folder is read again when these are used up.
class Backlog {
public:
    static constexpr size_t kCapacity = 20000;

    explicit Backlog(size_t capacity = kCapacity) : m_capacity(capacity) {}

    /// Adds a name, or gives it another time. What does not fit, the youngest, is let go.
    void add(const std::string& name, timespec since);
    /// Takes a name out, where it is in.
    void remove(const std::string& name);
    /// Empties it; everything is to be added anew.
    void clear();

    bool isEmpty() const { return m_order.empty(); }
    size_t size() const { return m_order.size(); }
    bool holds(const std::string& name) const { return m_times.contains(name); }
    /// Whether names were let go since clear().
    bool isCut() const { return m_cut; }
    /// By age, the oldest first.
    const std::set<Waiting>& names() const { return m_order; }

private:
    size_t m_capacity;
    std::set<Waiting> m_order;
    std::unordered_map<std::string, timespec> m_times;
    bool m_cut = false;
};

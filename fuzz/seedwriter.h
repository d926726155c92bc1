#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

/// The bytes of one seed.
using SeedBytes = std::vector<uint8_t>;

/// Puts seeds into the folders of their targets.
class SeedWriter {
public:
    explicit SeedWriter(std::filesystem::path folder) : m_folder(std::move(folder)) {}

    void write(const std::string& target, const std::string& name, const SeedBytes& bytes) const {
        std::filesystem::create_directories(m_folder / target);
        std::ofstream file(m_folder / target / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!file.flush()) throw std::runtime_error("cannot write " + (m_folder / target / name).string());
    }

private:
    std::filesystem::path m_folder;
};

inline SeedBytes seedOf(std::string_view text) {
    return {text.begin(), text.end()};
}

inline SeedBytes operator+(SeedBytes front, std::span<const uint8_t> back) {
    front.insert(front.end(), back.begin(), back.end());
    return front;
}

/// A number's bytes in the machine's order.
template <typename T>
SeedBytes seedOfNumber(T value) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    return {bytes, bytes + sizeof value};
}

void writeRequestSeeds(const SeedWriter& writer);
void writeConfigurationSeeds(const SeedWriter& writer);
void writeChannelSeeds(const SeedWriter& writer);
/// Streams of the two coders, and of each family of decoders behind the frame reader.
void writeStreamSeeds(const SeedWriter& writer);
/// Data sets with private elements of both generations.
void writePrivateSeeds(const SeedWriter& writer);
/// Objects of every transfer syntax and colour model, with the options of a request before them.
void writeObjectSeeds(const SeedWriter& writer);

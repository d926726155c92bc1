#include "pack/packseries.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <optional>
#include <sstream>

#include "pack/ElementKinds.h"
#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "pack/PackWriter.h"

namespace pack {
namespace {

namespace fs = std::filesystem;
constexpr std::string_view kDescriptorSuffix = ".desc";

/// Where an object of a series lies: as it was named, and however it was named.
struct Source {
    std::string prefix;
    std::string place;
    bool packed = false;
};

std::string placeOf(const std::string& prefix) {
    return fs::absolute(prefix).lexically_normal().string();
}

std::optional<struct stat> regularFile(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return status;
}

Source sourceOf(const std::string& word) {
    if (word.ends_with(kIndexSuffix)) {
        const std::string prefix = word.substr(0, word.size() - kIndexSuffix.size());
        return {prefix, placeOf(prefix), true};
    }
    if (!word.ends_with(kDescriptorSuffix)) throw PackError(word + " is neither a .desc nor an .index");
    const std::string prefix = word.substr(0, word.size() - kDescriptorSuffix.size());
    errno = 0;
    const auto descriptor = regularFile(word);
    if (!descriptor)
        throw PackError(word + (errno != 0 ? std::string(" cannot be opened (") + std::strerror(errno) + ")"
                                           : std::string(" is no regular file")));
    return {prefix, placeOf(prefix), isPackLatest(prefix)};
}

/// The first lines that tell where an object lies.
std::string firstLine(const Source& source) {
    if (source.packed) {
        const PackIndex index(source.prefix + std::string(kIndexSuffix));
        return index.head().frames > 0 ? index.text(index.frame(0).line) : "";
    }
    std::ifstream file(source.prefix + std::string(kDescriptorSuffix));
    std::string line;
    std::getline(file, line);
    return line;
}

/// Position and cosines of a frame's line, as many as it has.
struct Plane {
    std::vector<double> position;
    std::vector<double> cosines;

    explicit Plane(const std::string& line) {
        constexpr int kBefore = 13;  // fields
        size_t at = 0;
        for (int i = 0; i < kBefore; ++i) {
            const size_t blank = line.find(' ', at);
            if (blank == std::string::npos) return;
            at = blank + 1;
        }
        const size_t middle = line.find(' ', at);
        if (middle == std::string::npos) return;
        position = numbers(line.substr(at, middle - at));
        cosines = numbers(line.substr(middle + 1, line.find(' ', middle + 1) - middle - 1));
    }
    bool isWhole() const { return position.size() == 3 && cosines.size() == 6; }
    std::array<double, 3> normal() const {
        const auto& c = cosines;
        return {c[1] * c[5] - c[2] * c[4], c[2] * c[3] - c[0] * c[5], c[0] * c[4] - c[1] * c[3]};
    }

private:
    static std::vector<double> numbers(const std::string& text) {
        std::vector<double> values;
        std::istringstream fields(text);
        for (std::string field; std::getline(fields, field, '\\');) {
            char* end = nullptr;
            values.push_back(std::strtod(field.c_str(), &end));
            if (end == field.c_str() || !std::isfinite(values.back())) return {};
        }
        return values;
    }
};

double dot(const std::array<double, 3>& one, const double* other) {
    return one[0] * other[0] + one[1] * other[1] + one[2] * other[2];
}

/// Puts the objects in the order of their planes; false when they have none in common.
bool sortByGeometry(std::vector<Source>& sources) {
    constexpr double kParallel = 0.99;
    std::vector<double> distances;
    std::array<double, 3> normal{};
    for (const Source& source : sources) {
        const Plane plane(firstLine(source));
        if (!plane.isWhole()) return false;
        const std::array<double, 3> own = plane.normal();
        if (distances.empty()) normal = own;
        if (!(dot(normal, own.data()) > kParallel)) return false;
        distances.push_back(dot(normal, plane.position.data()));
    }
    std::vector<size_t> places(sources.size());
    std::iota(places.begin(), places.end(), size_t{0});
    std::stable_sort(places.begin(), places.end(),
                     [&](size_t one, size_t other) { return distances[one] < distances[other]; });
    std::vector<Source> sorted;
    for (const size_t place : places)
        sorted.push_back(std::move(sources[place]));
    sources = std::move(sorted);
    return true;
}

/// The folder that all of them have in common, with its "/"; what follows it is an object's name.
size_t commonFolder(const std::vector<Source>& sources) {
    const std::string& first = sources.front().place;
    size_t length = first.rfind('/') + 1;
    for (const Source& source : sources)
        while (length > 0 && source.place.compare(0, length, first, 0, length) != 0)
            length = length < 2 ? 0 : first.rfind('/', length - 2) + 1;
    return length;
}

/// Copies what lies in separate files and in packs into one.
class Packing {
public:
    /// Borrows all of them.
    Packing(PackWriter& writer, const ElementKinds& kinds, const std::function<bool()>& stops)
        : m_writer(writer), m_kinds(kinds), m_stops(stops), m_buffer(size_t{1} << 18) {}

    uint64_t frames() const { return m_frames; }
    uint64_t bytes() const { return m_bytes; }

    void take(const Source& source, const std::string& name) {
        if (source.packed)
            takePacked(source, name);
        else
            takeSeparate(source, name);
    }

private:
    void takeSeparate(const Source& source, const std::string& name) {
        m_writer.beginObject(name);
        const std::string path = source.prefix + std::string(kDescriptorSuffix);
        std::ifstream descriptor(path, std::ios::binary);
        if (!descriptor) throw PackError(path + " cannot be opened (" + std::strerror(errno) + ")");
        const uint8_t kinds = m_kinds.of(source.prefix);
        for (std::string line; std::getline(descriptor, line);) {
            if (descriptor.eof()) throw PackError(path + " ends within a line");
            goOn();
            const uint32_t number = beginFrame(path, line + '\n');
            bool any = false;
            for (size_t i = 0; i < kElements.size(); ++i)
                any |=
                    (kinds >> i & 1) != 0 &&
                    copyFile(source.prefix + "_" + std::to_string(number) + std::string(kElements[i].suffix),
                             [&](std::span<const uint8_t> bytes) {
                                 m_writer.add(Element{static_cast<int>(i)}, bytes);
                             });
            if (!any) throw PackError(path + ": frame " + std::to_string(number) + " has none of its files");
        }
        takeObjectFiles(source.prefix);
    }
    uint32_t beginFrame(const std::string& path, const std::string& line) {
        try {
            const uint32_t number = m_writer.beginFrame(line);
            ++m_frames;
            return number;
        } catch (const PackError& error) {
            throw PackError(path + ": " + error.what());
        }
    }

    void goOn() const {
        if (m_stops && m_stops()) throw PackError("interrupted");
    }

    void takePacked(const Source& source, const std::string& name) {
        const PackIndex index(source.prefix + std::string(kIndexSuffix));
        const bool isOne = index.head().objects == 1;
        bool hasFiles = false;
        std::optional<ObjectRecord> last;
        const auto end = [&] {
            if (last) copyObjectFiles(index, *last);
        };
        index.walk({.object =
                        [&](const ObjectRecord& object) {
                            end();
                            last = object;
                            hasFiles = hasFiles || object.present != 0;
                            m_writer.beginObject(isOne ? name : name + "/" + index.text(object.name));
                        },
                    .frame = [&](const FrameRecord& frame) { copyFrame(index, frame); },
                    .sums = false});
        end();
        // What was converted packed keeps the files of the object beside its pack.
        if (isOne && !hasFiles) takeObjectFiles(source.prefix);
    }
    void copyFrame(const PackIndex& index, const FrameRecord& frame) {
        goOn();
        m_writer.beginFrame(index.text(frame.line));
        ++m_frames;
        for (size_t i = 0; i < kElements.size(); ++i) {
            const Element element{static_cast<int>(i)};
            if (!frame.has(element)) continue;
            m_writer.add(element, {});
            index.copy(frame.elements[i], kElements[i].store, [&](std::span<const uint8_t> bytes) {
                m_writer.add(element, bytes);
                m_bytes += bytes.size();
            });
        }
    }
    void copyObjectFiles(const PackIndex& index, const ObjectRecord& object) {
        for (size_t kind = 0; kind < kObjectFiles.size(); ++kind) {
            if ((object.present >> kind & 1) == 0) continue;
            m_writer.addObjectFile(kind, {});
            index.copy(object.files[kind], Store::objects, [&](std::span<const uint8_t> bytes) {
                m_writer.addObjectFile(kind, bytes);
                m_bytes += bytes.size();
            });
        }
    }
    void takeObjectFiles(const std::string& prefix) {
        for (size_t kind = 0; kind < kObjectFiles.size(); ++kind)
            copyFile(prefix + std::string(kObjectFiles[kind]),
                     [&](std::span<const uint8_t> bytes) { m_writer.addObjectFile(kind, bytes); });
    }

    /// False when there is no such file. Gives at least one piece otherwise, of no bytes for an empty file.
    template <typename Give>
    bool copyFile(const std::string& path, Give give) {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (file < 0 && errno == ENOENT) return false;
        if (file < 0) throw PackError(path + " cannot be opened (" + std::strerror(errno) + ")");
        const struct Closing {
            int file;
            ~Closing() { close(file); }
        } closing{file};
        give(std::span<const uint8_t>());
        for (;;) {
            const ssize_t count = read(file, m_buffer.data(), m_buffer.size());
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) throw PackError(path + " cannot be read (" + std::strerror(errno) + ")");
            m_bytes += static_cast<uint64_t>(count);
            if (count > 0) give(std::span<const uint8_t>(m_buffer).first(static_cast<size_t>(count)));
            // Of a file as of a pipe that nobody writes to: fewer than there is room for are the last ones.
            if (static_cast<size_t>(count) < m_buffer.size()) return true;
        }
    }

    PackWriter& m_writer;
    const ElementKinds& m_kinds;
    const std::function<bool()>& m_stops;
    std::vector<uint8_t> m_buffer;
    uint64_t m_frames = 0;
    uint64_t m_bytes = 0;
};

ElementKinds kindsOf(const std::vector<Source>& sources) {
    std::vector<std::string> prefixes;
    uint64_t bytes = 0;
    for (const Source& source : sources) {
        if (source.packed) continue;
        prefixes.push_back(source.prefix);
        if (const auto file = regularFile(source.prefix + std::string(kDescriptorSuffix)))
            bytes += static_cast<uint64_t>(file->st_size);
    }
    // A line has more bytes than its frame has files, even among some of others: in a folder of more names it
    // is less effort to ask for each file.
    return {prefixes, bytes};
}

/// What is read must not be what is written, and be read once.
void checkTarget(const std::string& prefix, const std::vector<Source>& sources) {
    const std::string target = placeOf(prefix);
    std::vector<std::string_view> places;
    for (const Source& source : sources) {
        if (source.place == target) throw PackError(prefix + " is one of the objects that are to be packed");
        places.push_back(source.place);
    }
    std::sort(places.begin(), places.end());
    const auto twice = std::adjacent_find(places.begin(), places.end());
    if (twice != places.end()) throw PackError(std::string(*twice) + " is named twice");
}

}  // namespace

bool isPackLatest(const std::string& prefix) {
    const auto index = regularFile(prefix + std::string(kIndexSuffix));
    const auto descriptor = regularFile(prefix + std::string(kDescriptorSuffix));
    const auto time = [](const struct stat& file) {
        return std::pair(file.st_mtim.tv_sec, file.st_mtim.tv_nsec);
    };
    return index && (!descriptor || time(*index) >= time(*descriptor));
}

PackedSeries packSeries(const std::string& prefix, const std::vector<std::string>& words, bool byGeometry,
                        Durability durability, const std::function<bool()>& stops) {
    std::vector<Source> sources;
    for (const std::string& word : words)
        sources.push_back(sourceOf(word));
    if (sources.empty()) throw PackError("there is nothing to pack");
    checkTarget(prefix, sources);
    PackedSeries done;
    if (byGeometry && sortByGeometry(sources)) done.order = Order::byGeometry;
    const size_t folder = commonFolder(sources);
    PackWriter writer(prefix, done.order, durability);
    const ElementKinds kinds = kindsOf(sources);
    Packing packing(writer, kinds, stops);
    for (const Source& source : sources)
        packing.take(source, source.place.substr(folder));
    writer.finish();
    done.objects = sources.size();
    done.frames = packing.frames();
    done.bytes = packing.bytes();
    return done;
}

}  // namespace pack

#include "vintakd/viewer/partfacts.h"

#include <cerrno>
#include <cstring>
#include <type_traits>
#include <utility>

#include "pack/PackError.h"
#include "pack/crc32c.h"
#include "pack/layout.h"

// Head: a word, first and last frame. A frame: its findings, its line. End: the fragments, the bytes, the
// place of the raw pixels, the color model, the sum of everything before it. A text is its length and its
// bytes. Numbers are the machine's.
namespace {

constexpr uint32_t kMagic = 0x32545056;  // "VPT2"
static_assert(std::is_trivially_copyable_v<FrameFindings>);
static_assert(std::is_trivially_copyable_v<pack::SharedRaws>);

std::span<const uint8_t> bytesAt(const void* bytes, size_t size) {
    return {static_cast<const uint8_t*>(bytes), size};
}

}  // namespace

PartFactsWriter::PartFactsWriter(const std::string& path, const FramePart& part) : m_file(path, true) {
    const uint32_t head[] = {kMagic, part.first, part.last};
    put(head, sizeof head);
}

void PartFactsWriter::put(const void* bytes, size_t size) {
    m_sum = pack::crc32c(bytesAt(bytes, size), m_sum);
    m_file.append(bytesAt(bytes, size));
}

void PartFactsWriter::add(const FrameFindings& findings, std::string_view line) {
    const auto length = static_cast<uint32_t>(line.size());
    put(&findings, sizeof findings);
    put(&length, sizeof length);
    put(line.data(), line.size());
    ++m_frames;
}

void PartFactsWriter::finish(const FramePart& part, uint64_t bytesTaken, const pack::SharedRaws& raws) {
    if (m_frames != part.count()) throw pack::PackError("the object has not the frames of the part");
    const uint32_t fragments[] = {part.firstFragment, part.endFragment};
    const auto length = static_cast<uint32_t>(part.colorModel.size());
    put(fragments, sizeof fragments);
    put(&bytesTaken, sizeof bytesTaken);
    put(&raws, sizeof raws);
    put(&length, sizeof length);
    put(part.colorModel.data(), length);
    const uint32_t sum = m_sum;
    put(&sum, sizeof sum);
    m_file.close(false);
}

PartFactsReader::PartFactsReader(std::string path)
    : m_path(std::move(path)), m_file(std::fopen(m_path.c_str(), "rbe")) {
    if (!m_file) throw pack::PackError(m_path + " cannot be read (" + std::strerror(errno) + ")");
    try {
        uint32_t head[3];
        get(head, sizeof head);
        m_part = {.first = head[1], .last = head[2]};
        if (head[0] != kMagic || m_part.first == 0 || m_part.first > m_part.last) refuse("is none");
    } catch (...) {
        (void)std::fclose(m_file);
        throw;
    }
}

PartFactsReader::~PartFactsReader() {
    (void)std::fclose(m_file);
}

void PartFactsReader::refuse(const char* cause) const {
    throw pack::PackError(m_path + ": the record of a part " + cause);
}

void PartFactsReader::get(void* bytes, size_t size) {
    if (std::fread(bytes, 1, size, m_file) != size) refuse("is not whole");
    m_sum = pack::crc32c(bytesAt(bytes, size), m_sum);
}

std::string PartFactsReader::text() {
    uint32_t length = 0;
    get(&length, sizeof length);
    if (length > pack::kLongestText) refuse("is damaged");
    std::string text(length, '\0');
    get(text.data(), length);
    return text;
}

bool PartFactsReader::next(FrameFindings& findings, std::string& line) {
    if (m_frames == m_part.count()) {
        readEnd();
        return false;
    }
    get(&findings, sizeof findings);
    line = text();
    ++m_frames;
    return true;
}

void PartFactsReader::readEnd() {
    uint32_t fragments[2];
    get(fragments, sizeof fragments);
    get(&m_bytesTaken, sizeof m_bytesTaken);
    get(&m_raws, sizeof m_raws);
    m_part.firstFragment = fragments[0];
    m_part.endFragment = fragments[1];
    m_part.colorModel = text();
    const uint32_t sum = m_sum;
    uint32_t written = 0;
    get(&written, sizeof written);
    if (written != sum || std::fgetc(m_file) != EOF) refuse("is damaged");
}

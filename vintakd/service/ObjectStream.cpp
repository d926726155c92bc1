#include "vintakd/service/ObjectStream.h"

#include <dcmtk/dcmdata/dcerror.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

class ObjectStreamFactory : public DcmInputStreamFactory {
public:
    ObjectStreamFactory(std::shared_ptr<ObjectFile> file, uint64_t offset)
        : m_file(std::move(file)), m_offset(offset) {}

    DcmInputStream* create() const override { return new ObjectStream(m_file, m_offset); }
    DcmInputStreamFactory* clone() const override { return new ObjectStreamFactory(*this); }
    DcmInputStreamFactoryType ident() const override { return DFT_DcmInputFileStreamFactory; }

private:
    std::shared_ptr<ObjectFile> m_file;
    uint64_t m_offset;
};

}  // namespace

ObjectProducer::ObjectProducer(std::shared_ptr<ObjectFile> file, uint64_t offset, const Gap& gap)
    : m_file(std::move(file)), m_position(offset), m_gap(gap) {
    if (const int error = m_file->error())
        m_status = makeOFCondition(OFM_dcmdata, 18, OF_error, std::strerror(error));
}

offile_off_t ObjectProducer::avail() {
    const uint64_t size = m_file->size() - m_gap.size();
    return static_cast<offile_off_t>(size - std::min(size, m_position));
}

offile_off_t ObjectProducer::read(void* buffer, offile_off_t size) {
    if (m_status.bad() || buffer == nullptr || size <= 0) return 0;
    std::span<uint8_t> room(static_cast<uint8_t*>(buffer), static_cast<size_t>(size));
    while (!room.empty()) {
        const bool before = m_position < m_gap.begin;
        const size_t most = before ? std::min<uint64_t>(room.size(), m_gap.begin - m_position) : room.size();
        const ssize_t got = m_file->readAt(position(), room.first(most));
        if (got <= 0) break;
        m_position += static_cast<uint64_t>(got);
        room = room.subspan(static_cast<size_t>(got));
    }
    return size - static_cast<offile_off_t>(room.size());
}

offile_off_t ObjectProducer::skip(offile_off_t size) {
    if (m_status.bad() || size <= 0) return 0;
    const offile_off_t skipped = std::min(size, avail());
    m_position += static_cast<uint64_t>(skipped);
    return skipped;
}

void ObjectProducer::putback(offile_off_t size) {
    if (m_status.bad() || size <= 0) return;
    if (static_cast<uint64_t>(size) > m_position)
        m_status = EC_PutbackFailed;
    else
        m_position -= static_cast<uint64_t>(size);
}

ObjectStream::ObjectStream(std::shared_ptr<ObjectFile> file, uint64_t offset, const Gap& gap)
    : DcmInputStream(&m_producer), m_producer(std::move(file), offset, gap) {}

DcmInputStreamFactory* ObjectStream::newFactory() const {
    if (currentProducer() != &m_producer) return nullptr;
    return new ObjectStreamFactory(m_producer.file(), m_producer.position());
}

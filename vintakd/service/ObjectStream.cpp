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

ObjectProducer::ObjectProducer(std::shared_ptr<ObjectFile> file, uint64_t offset, LeftOut leftOut)
    : m_file(std::move(file)), m_leftOut(std::move(leftOut)), m_position(offset) {
    if (const int error = m_file->error())
        m_status = makeOFCondition(OFM_dcmdata, 18, OF_error, std::strerror(error));
}

offile_off_t ObjectProducer::avail() {
    const uint64_t ahead = m_file->size() - std::min(m_file->size(), m_position);
    return static_cast<offile_off_t>(ahead - std::min(ahead, m_leftOut.bytesFrom(m_position)));
}

offile_off_t ObjectProducer::read(void* buffer, offile_off_t size) {
    if (m_status.bad() || buffer == nullptr || size <= 0) return 0;
    std::span<uint8_t> room(static_cast<uint8_t*>(buffer), static_cast<size_t>(size));
    while (!room.empty()) {
        m_position = m_leftOut.visible(m_position);
        const uint64_t whole = m_leftOut.stop(m_position, m_position + room.size()) - m_position;
        const ssize_t got = m_file->readAt(m_position, room.first(static_cast<size_t>(whole)));
        if (got <= 0) break;
        m_position += static_cast<uint64_t>(got);
        room = room.subspan(static_cast<size_t>(got));
    }
    return size - static_cast<offile_off_t>(room.size());
}

offile_off_t ObjectProducer::skip(offile_off_t size) {
    if (m_status.bad() || size <= 0) return 0;
    const offile_off_t skipped = std::min(size, avail());
    for (auto left = static_cast<uint64_t>(skipped); left > 0;) {
        m_position = m_leftOut.visible(m_position);
        const uint64_t step = m_leftOut.stop(m_position, m_position + left) - m_position;
        m_position += step;
        left -= step;
    }
    return skipped;
}

void ObjectProducer::putback(offile_off_t size) {
    if (m_status.bad() || size <= 0) return;
    if (static_cast<uint64_t>(size) > m_position)
        m_status = EC_PutbackFailed;
    else
        m_position = m_leftOut.back(m_position, static_cast<uint64_t>(size));
}

ObjectStream::ObjectStream(std::shared_ptr<ObjectFile> file, uint64_t offset, LeftOut leftOut)
    : DcmInputStream(&m_producer), m_producer(std::move(file), offset, std::move(leftOut)) {}

DcmInputStreamFactory* ObjectStream::newFactory() const {
    if (currentProducer() != &m_producer) return nullptr;
    return new ObjectStreamFactory(m_producer.file(), m_producer.position());
}

#include "vintakd/service/ShallowFileStream.h"

#include <dcmtk/dcmdata/dcerror.h>

namespace {

[[gnu::noinline]] const char* stackPosition() {
    return static_cast<const char*>(__builtin_frame_address(0));
}

}  // namespace

ShallowFileStream::ShallowFileStream(std::shared_ptr<ObjectFile> file, LeftOut leftOut, uint64_t offset)
    : ObjectStream(std::move(file), offset, std::move(leftOut)), m_top(stackPosition()) {}

void ShallowFileStream::look() {
    if (m_top - stackPosition() > static_cast<ptrdiff_t>(objectlimits::kParsingStack)) m_tooDeep = true;
}

OFCondition ShallowFileStream::status() const {
    return refuses() ? EC_InvalidStream : ObjectStream::status();
}

offile_off_t ShallowFileStream::avail() {
    look();
    return refuses() ? 0 : ObjectStream::avail();
}

offile_off_t ShallowFileStream::read(void* buffer, offile_off_t size) {
    look();
    m_bytesRead += static_cast<uint64_t>(size);  // asked for, which a long value does in one piece
    return refuses() ? 0 : ObjectStream::read(buffer, size);
}

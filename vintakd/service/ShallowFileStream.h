#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "imgproc/objectlimits.h"
#include "vintakd/service/ObjectStream.h"

/// A file stream that ends the parse of an object before its nesting ends the stack, or its values the
/// memory. The second net under the scan of the file (imgproc/objectscan.h), should scan and parser ever read
/// an object differently: the toolkit's parser calls itself for every sequence and item. The stream is read
/// at every level, and refuses when the stack below the caller has grown too deep. Bytes are counted behind
/// the filter that inflates a deflated object, whose long values cannot stay in the file.
class ShallowFileStream : public ObjectStream {
public:
    /// `leftOut`: what the parse is not to see; it begins at `offset`.
    explicit ShallowFileStream(std::shared_ptr<ObjectFile> file, LeftOut leftOut = {}, uint64_t offset = 0);

    OFBool good() const override { return !refuses() && ObjectStream::good(); }
    OFCondition status() const override;
    offile_off_t avail() override;
    offile_off_t read(void* buffer, offile_off_t size) override;

    bool tooDeep() const { return m_tooDeep; }
    bool tooLarge() const { return m_bytesRead > objectlimits::kLoadedBytes; }

private:
    bool refuses() const { return m_tooDeep || tooLarge(); }
    void look();

    const char* m_top;  ///< where the stack stood when the parse began
    bool m_tooDeep = false;
    uint64_t m_bytesRead = 0;
};

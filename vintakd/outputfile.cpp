#include "vintakd/outputfile.h"

#include <cerrno>
#include <cstring>

#include "imgproc/imageprocess.h"
#include "imgproc/operationallog.h"

namespace {

// Headers and payloads of a frame's files are written in pieces; most files fit into one buffer, and the
// pieces of larger ones go to the file in few calls.
constexpr size_t bufferSize = size_t{1} << 16;

}  // namespace

bool OutputFile::open(std::string path) {
    close();
    m_path = std::move(path);
    m_file = std::fopen(m_path.c_str(), "wb");
    if (!m_file) {
        std::string cause = withReason("Cannot create file: " + m_path, errno);
        OFLOG_ERROR(operationalLogger(), cause);
        m_process.reportFailure(std::move(cause));
        return false;
    }
    if (!m_buffer) m_buffer = std::make_unique_for_overwrite<char[]>(bufferSize);
    std::setvbuf(m_file, m_buffer.get(), _IOFBF, bufferSize);
    m_error = errno = 0;
    return true;
}

void OutputFile::noteError() {
    if (m_file && m_error == 0 && std::ferror(m_file) != 0) m_error = errno;
}

bool OutputFile::close() {
    if (!m_file) return true;
    if (std::fflush(m_file) == 0) noteError();
    else if (m_error == 0) m_error = errno;
    const bool written = std::ferror(m_file) == 0;
    if (written && closeKeeping(m_file, m_error) return true;
}

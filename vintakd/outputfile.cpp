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
        report("Cannot create file: ", errno);
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
    noteError();
    const bool written = std::ferror(m_file) == 0;
    const bool closed = std::fclose(m_file) == 0;
    if (!closed && written) m_error = errno;
    m_file = nullptr;
    if (!written || !closed) report("Error writing file: ", m_error);
    return written && closed;
}

void OutputFile::report(const char* action, int error) {
    std::string cause = action + m_path;
    if (error != 0) cause += std::string(" (") + std::strerror(error) + ")";
    // The streams' files fail no conversion, so the log is the only place where their loss is told.
    OFLOG_ERROR(operationalLogger(), cause);
    m_process.reportFailure(std::move(cause));
}

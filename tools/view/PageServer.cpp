#include "tools/view/PageServer.h"

#include <httplib.h>
#include <sys/random.h>

#include <charconv>
#include <chrono>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <thread>

#include "tools/view/OpenFile.h"
#include "tools/view/indexpage.h"

namespace view {
namespace {

constexpr const char* kHost = "127.0.0.1";
constexpr size_t kThreads = 32;  // each keeps one of the browser's connections
constexpr size_t kRequestsOfConnection = 100'000;
constexpr size_t kPiece = size_t{1} << 18;

constexpr const char* kContentSecurityPolicy =
    "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'; style-src 'self'; img-src 'self' blob:; "
    "connect-src 'self'; worker-src 'self'; frame-src 'self'; object-src 'none'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'self'";

struct Type {
    std::string_view suffix;
    const char* type;
};
constexpr Type kTypes[] = {{".html", "text/html; charset=utf-8"},
                           {".js", "text/javascript; charset=utf-8"},
                           {".css", "text/css; charset=utf-8"},
                           {".wasm", "application/wasm"},
                           {".svg", "image/svg+xml"},
                           {".pdf", "application/pdf"},
                           {".desc", "text/plain; charset=utf-8"}};

const char* typeOf(std::string_view path) {
    for (const Type& type : kTypes)
        if (path.ends_with(type.suffix)) return type.type;
    return "application/octet-stream";
}

/// 128 bits in hexadecimal.
std::string randomToken() {
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
        throw std::runtime_error("there are no random numbers for the page's address");
    std::string token;
    for (const unsigned char byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            token += "0123456789abcdef"[digit];
    return token;
}

/// Hands the next bytes of `file` to `sink`; false when they cannot be read or taken.
bool give(const OpenFile& file, size_t offset, size_t length, httplib::DataSink& sink) {
    std::vector<char> piece(std::min(length, kPiece));
    const size_t count = file.read(offset, piece);
    return count > 0 && sink.write(piece.data(), count);
}

/// Whether every range has a byte of a file of `size` bytes.
bool rangesLieWithin(const httplib::Ranges& ranges, size_t size) {
    for (const auto& [first, last] : ranges) {
        if (first < 0 ? last <= 0 : static_cast<size_t>(first) >= size) return false;
    }
    return true;
}

/// False when there is no such file.
bool answerFile(const std::string& path, const char* caching, const httplib::Request& request,
                httplib::Response& response) {
    const std::shared_ptr<OpenFile> file = OpenFile::open(path);
    if (!file) return false;
    if (!request.ranges.empty() && !rangesLieWithin(request.ranges, file->size())) {
        response.status = 416;
        response.set_header("Content-Range", "bytes */" + std::to_string(file->size()));
        return true;
    }
    response.set_header("Cache-Control", caching);
    if (file->size() == 0) {
        response.set_content("", typeOf(path));
        return true;
    }
    response.set_content_provider(file->size(), typeOf(path),
                                  [file](size_t offset, size_t length, httplib::DataSink& sink) {
                                      return give(*file, offset, length, sink);
                                  });
    return true;
}

/// A number without sign or leading zero at the beginning of `text`, which then loses it.
std::optional<int> takeNumber(std::string_view& text) {
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || number < 0 || (text.front() == '0' && end != text.data() + 1) ||
        text.front() == '-')
        return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return number;
}

bool takeText(std::string_view& text, std::string_view expected) {
    if (!text.starts_with(expected)) return false;
    text.remove_prefix(expected.size());
    return true;
}

/// What follows the prefix of an object's file, as it was asked for; nothing for what the object does not
/// have.
std::optional<std::string> listedEnd(std::string_view end, const ViewedObject& object) {
    if (end == ".desc" && object.frames > 0 && !object.packed) return std::string(end);
    if (end == ".pdf" && object.document) return std::string(end);
    if (object.packed) {
        for (const std::string_view suffix : kPackSuffixes)
            if (end == suffix) return std::string(end);
        return std::nullopt;
    }
    const std::string_view whole = end;
    if (!takeText(end, "_")) return std::nullopt;
    const std::optional<int> frame = takeNumber(end);
    if (!frame || *frame < 1 || *frame > object.frames) return std::nullopt;
    for (const std::string_view suffix : kFrameSuffixes)
        if (end == suffix) return std::string(whole);
    return std::nullopt;
}

/// A plain name in the page's folder or its assets: no other folder, nothing hidden.
bool isPlainPageName(std::string_view path) {
    takeText(path, "assets/");
    if (path.empty() || path.front() == '.') return false;
    for (const char c : path)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_') return false;
    return true;
}

}  // namespace

PageServer::PageServer(std::string pageFolder, std::vector<ViewedObject> objects, int port)
    : m_pageFolder(std::move(pageFolder)),
      m_objects(std::move(objects)),
      m_page(indexPage(m_pageFolder, m_objects)),
      m_list(objectsJson(m_objects)),
      m_root("/" + randomToken() + "/"),
      m_server(std::make_unique<httplib::Server>()) {
    m_server->new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    m_server->set_tcp_nodelay(true);
    m_server->set_keep_alive_max_count(kRequestsOfConnection);
    m_server->set_keep_alive_timeout(1);  // s; as long as stop() may have to wait
    m_server->set_default_headers({{"Content-Security-Policy", kContentSecurityPolicy},
                                   {"X-Content-Type-Options", "nosniff"},
                                   {"Referrer-Policy", "no-referrer"},
                                   {"Cross-Origin-Resource-Policy", "same-origin"}});
    m_server->Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
        answer(request, response);
    });
    if (port != 0) {
        m_port = m_server->bind_to_port(kHost, port) ? port : -1;
    } else {
        m_port = m_server->bind_to_any_port(kHost);
    }
    if (m_port < 0)
        throw std::runtime_error(port != 0 ? "port " + std::to_string(port) + " cannot be had"
                                           : "there is no free port");
}

PageServer::~PageServer() = default;

std::string PageServer::address() const {
    return std::string("http://") + kHost + ":" + std::to_string(m_port) + m_root;
}

void PageServer::run() {
    m_server->listen_after_bind();
    m_isOver = true;
}

// The library's stop() does nothing to a server that is about to run, and that one never ends.
void PageServer::stop() {
    while (!m_server->is_running() && !m_isOver)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_server->stop();
}

// A name that resolves to this host from elsewhere must not open the page's data to another site's scripts.
void PageServer::answer(const httplib::Request& request, httplib::Response& response) const {
    const std::string port = ":" + std::to_string(m_port), host = request.get_header_value("Host");
    if (host != kHost + port && host != "localhost" + port) {
        response.status = 421;
        return;
    }
    if (!request.path.starts_with(m_root)) {
        response.status = 404;
        return;
    }
    const std::string path = request.path.substr(m_root.size());
    const bool answered = path == "objects.json"         ? answerList(response)
                          : path.starts_with("results/") ? answerResult(path, request, response)
                                                         : answerPage(path, request, response);
    if (!answered) response.status = 404;
}

bool PageServer::answerList(httplib::Response& response) const {
    response.set_header("Cache-Control", "no-store");
    response.set_content(m_list, "application/json; charset=utf-8");
    return true;
}

bool PageServer::answerResult(const std::string& path, const httplib::Request& request,
                              httplib::Response& response) const {
    std::string_view rest(path);
    takeText(rest, "results/");
    const std::optional<int> index = takeNumber(rest);
    if (!index || static_cast<size_t>(*index) >= m_objects.size() || !takeText(rest, "/o")) return false;
    const ViewedObject& object = m_objects[static_cast<size_t>(*index)];
    const std::optional<std::string> end = listedEnd(rest, object);
    return end && answerFile(object.prefix + *end, "private, max-age=31536000, immutable", request, response);
}

bool PageServer::answerPage(const std::string& path, const httplib::Request& request,
                            httplib::Response& response) const {
    if (path.empty() || path == "index.html") {
        response.set_header("Cache-Control", "no-cache");
        response.set_content(m_page, "text/html; charset=utf-8");
        return true;
    }
    return isPlainPageName(path) && answerFile(m_pageFolder + "/" + path, "no-cache", request, response);
}

}  // namespace view

#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tools/view/viewedobject.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace view {

/// Serves the viewer's page and the results of the listed objects to this host alone: on 127.0.0.1, below a
/// path that nobody can guess, to requests that name this host. Nothing but what was listed is served, and no
/// symbolic link.
class PageServer {
public:
    /// `pageFolder` holds index.html and assets/. Takes a free port, or `port`. Throws std::runtime_error
    /// when it cannot be had.
    PageServer(std::string pageFolder, std::vector<ViewedObject> objects, int port = 0);
    ~PageServer();

    /// The address to open, without a line feed.
    std::string address() const;

    /// Answers requests until stop() is called, from another thread, be it before this one has begun.
    void run();
    /// Once for a run(), which it waits for to begin.
    void stop();

private:
    void answer(const httplib::Request& request, httplib::Response& response) const;
    bool answerList(httplib::Response& response) const;
    bool answerResult(const std::string& path, const httplib::Request& request,
                      httplib::Response& response) const;
    bool answerPage(const std::string& path, const httplib::Request& request,
                    httplib::Response& response) const;

    std::string m_pageFolder;
    std::vector<ViewedObject> m_objects;
    std::string m_page;  ///< index.html
    std::string m_list;
    std::string m_root;  ///< "/TOKEN/"
    std::unique_ptr<httplib::Server> m_server;
    int m_port = 0;
    std::atomic<bool> m_isOver = false;
};

}  // namespace view

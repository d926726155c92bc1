#include "tools/view/indexpage.h"

#include <algorithm>
#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <fstream>
#include <iterator>
#include <string_view>

#include "tools/view/OpenFile.h"

namespace view {
namespace {

/// Bytes of a file up to which it goes into the page; a longer one would hold up what comes behind it.
constexpr size_t kMostCarried = 1 << 14;

/// As much as goes into the page; one byte more tells that it is longer. Nothing for what cannot be had.
std::string beginningOf(const std::string& path) {
    std::string content(kMostCarried + 1, '\0');
    const std::shared_ptr<OpenFile> file = OpenFile::open(path);
    content.resize(file ? file->read(0, content) : 0);
    return content;
}

std::string base64(std::string bytes) {
    namespace iterators = boost::archive::iterators;
    using Letters =
        iterators::base64_from_binary<iterators::transform_width<std::string::const_iterator, 6, 8>>;
    const size_t missing = (3 - bytes.size() % 3) % 3;
    bytes.append(missing, '\0');
    std::string text(Letters(bytes.cbegin()), Letters(bytes.cend()));
    return text.replace(text.size() - missing, missing, missing, '=');
}

void insertBefore(std::string& html, std::string_view place, const std::string& element) {
    const size_t at = html.rfind(place);
    if (at != std::string::npos) html.insert(at, element + "\n  ");
}

/// `address` is relative to the page.
void bring(std::string& html, const std::string& address, const std::string& content) {
    if (content.size() > kMostCarried)
        insertBefore(html, "</head>",
                     "  <link rel=\"preload\" href=\"" + address + "\" as=\"fetch\" crossorigin>");
    else if (!content.empty())
        insertBefore(
            html, "</body>",
            "  <script type=\"text/plain\" data-file=\"" + address + "\">" + base64(content) + "</script>");
}

/// The page names its list for itself.
void leaveOutLink(std::string& html, const std::string& address) {
    const size_t named = html.find("href=\"" + address + "\"");
    if (named == std::string::npos) return;
    const size_t begin = html.rfind('\n', named), end = html.find('\n', named);
    if (begin != std::string::npos && end != std::string::npos) html.erase(begin, end - begin);
}

}  // namespace

std::string indexPage(const std::string& pageFolder, std::span<const ViewedObject> objects) {
    std::ifstream file(pageFolder + "/index.html", std::ios::binary);
    std::string html((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::string listAddress = "objects.json";
    leaveOutLink(html, listAddress);
    bring(html, listAddress, objectsJson(objects));
    const auto first = std::find_if(objects.begin(), objects.end(),
                                    [](const ViewedObject& object) { return object.frames > 0; });
    if (first == objects.end() || first->packed) return html;
    const std::string address = "results/" + std::to_string(first - objects.begin()) + "/o";
    for (const std::string& end :
         {std::string(".desc"), "_" + std::to_string(first->frames / 2 + 1) + ".p.qi4"})
        bring(html, address + end, beginningOf(first->prefix + end));
    return html;
}

}  // namespace view

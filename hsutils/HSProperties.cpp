#include "hsutils/HSProperties.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "hsutils/HSAssertionException.h"

namespace {

constexpr size_t kLongestLine = 65535;

bool isWhite(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

struct FileCloser {
    void operator()(FILE* file) const { (void)std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

}  // namespace

HSProperties::HSProperties(const HSProperties& other) {
    for (const auto& entry : other.m_entries)
        m_entries.push_back(std::make_unique<HSProperty>(*entry));
}

HSProperties& HSProperties::operator=(const HSProperties& other) {
    HSProperties copy(other);
    m_entries.swap(copy.m_entries);
    return *this;
}

bool HSProperties::load(const char* filename) {
    HS_ASSERT_NOT_NULL(filename);
    const File file(std::fopen(filename, "rb"));
    if (!file) return false;
    std::vector<char> line(kLongestLine + 1);
    while (std::fgets(line.data(), static_cast<int>(line.size()), file.get()))
        setFromLine(line.data());
    return true;
}

void HSProperties::setFromLine(char* line) {
    char* cursor = skipWhiteSpaces(line);
    if (*cursor == '\0' || *cursor == '#') return;
    const char* name = getNextValue(cursor, '=');
    if (name == nullptr || *name == '\0') return;
    replace(cursor, '"', ' ');
    setProperty(name, trim(cursor));
}

bool HSProperties::write(const char* filename) const {
    HS_ASSERT_NOT_NULL(filename);
    FILE* f = std::fopen(filename, "wb");
    if (f == nullptr)
        throw HSAssertionException("f", __LINE__, __FILE__, "could not open %s in HSProperties::write",
                                   filename);
    for (const auto& entry : m_entries)
        std::fprintf(f, "%s=\"%s\"\n", entry->name(), entry->value());
    const bool written = std::ferror(f) == 0;
    return std::fclose(f) == 0 && written;
}

HSProperties::Entries::const_iterator HSProperties::find(const char* name) const {
    return std::find_if(m_entries.begin(), m_entries.end(),
                        [name](const auto& entry) { return std::strcmp(entry->name(), name) == 0; });
}

const char* HSProperties::getProperty(const char* name) const {
    HS_ASSERT_NOT_NULL(name);
    const auto entry = find(name);
    return entry == m_entries.end() ? nullptr : (*entry)->value();
}

void HSProperties::setProperty(const char* name, const char* value) {
    HS_ASSERT_NOT_NULL(name);
    HS_ASSERT_NOT_NULL(value);
    const auto entry = find(name);
    if (entry == m_entries.end())
        m_entries.push_back(std::make_unique<HSProperty>(name, value));
    else
        (*entry)->setValue(value);
}

void HSProperties::remove(const char* name) {
    HS_ASSERT_NOT_NULL(name);
    const auto entry = find(name);
    if (entry != m_entries.end()) m_entries.erase(entry);
}

char* HSProperties::skipWhiteSpaces(char* text) {
    while (isWhite(*text))
        ++text;
    return text;
}

char* HSProperties::trim(char* text) {
    text = skipWhiteSpaces(text);
    char* end = text + std::strlen(text);
    while (end != text && isWhite(end[-1]))
        --end;
    *end = '\0';
    return text;
}

void HSProperties::replace(char* text, char from, char to) {
    std::replace(text, text + std::strlen(text), from, to);
}

char* HSProperties::getNextValue(char*& cursor, char separator) {
    char* end = std::strchr(cursor, separator);
    if (end == nullptr) return nullptr;
    char* value = cursor;
    *end = '\0';
    cursor = end + 1;
    return trim(value);
}

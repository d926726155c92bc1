#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "hsutils/HSProperty.h"

/// A small store for configuration files of the form name=value, in the order in which the names were first
/// set. Names are unique and compared byte by byte. Null arguments are programming errors and throw
/// HSAssertionException with the parameter's name. Used by one thread at a time.
///
/// File format: one entry per line. Leading white space, empty lines and lines that begin with "#" are
/// ignored; so are lines without "=" or without a name before it. In a value every double quote reads as a
/// blank before the surrounding white space is removed, so that quoted and bare values are alike.
class HSProperties {
public:
    HSProperties() = default;
    HSProperties(const HSProperties& other);
    HSProperties& operator=(const HSProperties& other);
    HSProperties(HSProperties&&) = default;
    HSProperties& operator=(HSProperties&&) = default;

    /// Sets every entry of the file on top of those that are there. False, and nothing changed, when the file
    /// cannot be opened.
    bool load(const char* filename);
    /// Writes every entry as name="value" into a new or truncated file. Throws HSAssertionException when the
    /// file cannot be opened; false when not everything could be written.
    bool write(const char* filename) const;

    /// Null when there is no such entry; else valid until that entry is changed or removed.
    const char* getProperty(const char* name) const;
    void setProperty(const char* name, const char* value);
    void remove(const char* name);
    void clear() { m_entries.clear(); }
    size_t size() const { return m_entries.size(); }

    // Text functions; all work in place on NUL-terminated text.

    /// The first character that is not white space.
    static char* skipWhiteSpaces(char* text);
    /// Skips leading white space and cuts trailing white space.
    static char* trim(char* text);
    static void replace(char* text, char from, char to);
    /// Cuts the text at the next separator, moves the cursor behind it and returns the trimmed text before
    /// it; null, with the cursor unmoved, when there is no separator.
    static char* getNextValue(char*& cursor, char separator);

private:
    using Entries = std::vector<std::unique_ptr<HSProperty>>;

    void setFromLine(char* line);
    Entries::const_iterator find(const char* name) const;

    Entries m_entries;  ///< Held by pointer: a value stays where it is while others come and go.
};

#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dcsequen.h>

#include <cstdint>
#include <ostream>

/// The text listing of a data set: a line for each element with its tag, VR and value, sequences and items
/// with an opening and a closing line. Lines are indented by their level.
class TagListing {
public:
    /// Borrows `out`.
    TagListing(std::ostream& out, bool escapeNewLines) : m_out(&out), m_escapeNewLines(escapeNewLines) {}

    /// Where the lines go from now on (borrowed).
    void setOutput(std::ostream& out) { m_out = &out; }
    std::ostream& output() const { return *m_out; }

    /// The element at a level, a sequence with all that is in it. Throws std::runtime_error when the values
    /// together have more bytes than an answer may have.
    void printElement(DcmElement& element, int level);
    void printSequence(DcmSequenceOfItems& sequence, int level);
    void printItem(DcmItem& item, int level);

    /// A copy of `text` with CR, LF and backslash as two characters each, to be deleted as an array; null
    /// when there is nothing to escape.
    static char* escapeNewLines(const char* text);

private:
    void printLine(DcmElement& element, int level);
    void printTag(DcmObject& object, int level);

    std::ostream* m_out;
    bool m_escapeNewLines;
    uint64_t m_valueBytes = 0;  ///< of the values printed so far
};

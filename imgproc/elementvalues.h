#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcitem.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

// Values of elements. What an attribute says is read without its padding (see unpadded() in hsutils/Utils.h),
// whichever byte a writer padded it with: a NUL behind "RGB" makes no other colour model of it.

/// Value `position` of the element, counted from 0; nothing when there is no such value.
std::optional<std::string> textOf(DcmElement& element, unsigned long position = 0);

/// The first value of the item's own element `key`.
std::optional<std::string> textOf(DcmItem& item, const DcmTagKey& key);

/// All values of the element, separated by backslashes; nothing when they cannot be read.
std::optional<std::string> textsOf(DcmElement& element);

/// The whole value as a dump or a query shows it: as the toolkit renders it, padding of texts included, all
/// numbers of a binary value separated by backslashes. Empty when it cannot be read. A value that was left in
/// the file is loaded.
std::string shownValue(DcmElement& element);

/// Value `position` of the element as a decimal number, 0 for a text that is none; nothing when there is no
/// such value.
std::optional<double> decimalOf(DcmElement& element, unsigned long position = 0);

/// The bytes of an element's value as a little endian file has them, whether its representation has bytes or
/// words. Nothing when it is empty, cannot be read or is a sequence. They belong to the element.
std::span<uint8_t> valueBytes(DcmElement& element);

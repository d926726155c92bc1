#include "privateblock/privatedictionary.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdicent.h>
#include <dcmtk/dcmdata/dcdict.h>

#include <mutex>

#include "privateblock/legacytags.h"

namespace {

struct PrivateEntry {
    unsigned char key;
    DcmEVR vr;
    const char* name;
    int vmMax;
};

// The lists of numbers hold entries for every frame, so their length can outgrow the 16 bits that the usual
// text representations have. They are UC, which has 32 bits and knows the backslash as a separator; the
// fingerprint is free text, in which a backslash is a character like any other, hence UT.
constexpr PrivateEntry kEntries[] = {
    {0x11, EVR_UC, "PreferredWindowWidths", DcmVariableVM},
    {0x12, EVR_UC, "PreferredWindowCenters", DcmVariableVM},
    {0x13, EVR_SL, "FrameMinimumValues", DcmVariableVM},
    {0x14, EVR_SL, "FrameMaximumValues", DcmVariableVM},
    {0x1D, EVR_UC, "PixelDataReference", DcmVariableVM},
    {0x1E, EVR_US, "ActualBitsUsed", DcmVariableVM},
    {0x3A, EVR_UT, "ContentFingerprint", 1},
    {0x45, EVR_CS, "InvalidationKind", 1},
    {0x46, EVR_SQ, "ReferencedObjectSequence", 1},
    {0x47, EVR_DA, "InvalidationDate", 1},
    {0x48, EVR_TM, "InvalidationTime", 1},
    {0x49, EVR_SQ, "InvalidatedSeriesSequence", 1},
    {0x4A, EVR_SQ, "InvalidatedObjectSequence", 1},
    {0x62, EVR_SQ, "OverrideSequence", 1},
    {0x63, EVR_UT, "OverrideLabel", 1},
    {0x71, EVR_SQ, "OverlaySequence", 1},
    {0x72, EVR_CS, "OverlayCompression", 1},
    {0x73, EVR_OB, "OverlayBitmap", 1},
};

void addEntry(DcmDataDictionary& dictionary, const PrivateEntry& entry, unsigned short element,
              const char* creator) {
    // The dictionary owns the entry and, because strings are copied, its texts.
    dictionary.addEntry(new DcmDictEntry(kPrivateGroup, element, entry.vr, entry.name, 1, entry.vmMax,
                                         "private", OFTrue, creator));
}

}  // namespace

void registerPrivateDictionary() {
    static std::once_flag registered;
    std::call_once(registered, [] {
        DcmDataDictionary& dictionary = dcmDataDict.wrlock();
        for (const PrivateEntry& entry : kEntries) {
            addEntry(dictionary, entry, entry.key, kPrivateCreator);
            for (const LegacyTag& legacy : legacyTags())
                if (legacy.key == entry.key)
                    addEntry(dictionary, entry, legacy.element, kLegacyPrivateCreator);
        }
        dcmDataDict.wrunlock();
    });
}

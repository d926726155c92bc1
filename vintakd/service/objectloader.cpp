#include "vintakd/service/objectloader.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcerror.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "hsutils/ClassedError.h"
#include "imgproc/fileitems.h"
#include "imgproc/objectlimits.h"
#include "imgproc/objectsyntax.h"
#include "vintakd/service/ShallowFileStream.h"

namespace {

/// Of the groups of frames: below this their tree takes little memory.
constexpr uint64_t kLeastLeftBytes = uint64_t{16} << 10;

[[noreturn]] void refuse(const std::string& path, const RefusalText& cause) {
    throw ClassedError("Error loading file: " + path + ": " + cause, cause.kind);
}

/// A device or a pipe could keep the servant waiting for ever.
void checkRegularFile(const std::string& path, ObjectValues values) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) refuse(path, {std::strerror(errno), ErrorClass::file});
    if (S_ISDIR(status.st_mode)) refuse(path, {"is a directory", ErrorClass::file});
    if (!S_ISREG(status.st_mode)) refuse(path, {"is not a regular file", ErrorClass::file});
    if (values == ObjectValues::allForListing &&
        static_cast<unsigned long long>(status.st_size) > objectlimits::kDumpedFileBytes) {
        refuse(path, {"has " + std::to_string(status.st_size) + " bytes, the limit of a dump is " +
                          std::to_string(objectlimits::kDumpedFileBytes),
                      ErrorClass::limit});
    }
}

/// The toolkit reads almost any bytes as elements of some kind; what has neither a meta header nor a single
/// element that every object has is no object.
bool looksLikeAnObject(DcmFileFormat& file) {
    DcmMetaInfo* meta = file.getMetaInfo();
    if (meta && meta->card() > 0) return true;
    DcmDataset* dataset = file.getDataset();
    return dataset->tagExists(DCM_SOPClassUID) || dataset->tagExists(DCM_SOPInstanceUID) ||
           dataset->tagExists(DCM_Modality) || dataset->tagExists(DCM_PixelData);
}

void nameSyntax(DcmMetaInfo& meta, std::string_view uid) {
    meta.putAndInsertString(DCM_TransferSyntaxUID, std::string(uid).c_str());
}

/// The toolkit takes a transfer syntax that it does not know for plain pixel data. Where we know it, the meta
/// header names another one of the same encoding to it, for as long as it reads the data set.
OFCondition read(DcmFileFormat& file, ShallowFileStream& stream, Uint32 maxReadLength) {
    file.transferInit();
    DcmMetaInfo& meta = *file.getMetaInfo();
    OFCondition result = meta.read(stream, EXS_Unknown, EGL_noChange, maxReadLength);
    const TransferSyntax* syntax = result.good() ? highThroughputOf(*file.getDataset()) : nullptr;
    if (syntax) nameSyntax(meta, syntax->readAs);
    if (result.good()) result = file.read(stream, EXS_Unknown, EGL_noChange, maxReadLength);
    if (syntax) nameSyntax(meta, syntax->uid);
    file.transferEnd();
    return result;
}

void parse(DcmFileFormat& file, const std::string& path, std::shared_ptr<ObjectFile> bytes,
           const LeftOut& leftOut, Uint32 maxReadLength) {
    ShallowFileStream stream(std::move(bytes), leftOut);
    OFCondition parsed = stream.status();
    try {
        if (parsed.good()) parsed = read(file, stream, maxReadLength);
    } catch (const std::out_of_range& error) {
        // The toolkit cuts the type of a directory record without asking how long it is.
        refuse(path, std::string("cannot be parsed: ") + error.what());
    }
    if (stream.tooDeep())
        refuse(path, {"takes more than " + std::to_string(objectlimits::kParsingStack) + " bytes of stack",
                      ErrorClass::limit});
    if (stream.tooLarge())
        refuse(path, {"takes more than " + std::to_string(objectlimits::kLoadedBytes) + " bytes of memory",
                      ErrorClass::limit});
    if (parsed == EC_StreamNotifyClient) {
        refuse(path, "ends in the middle of an element: it is truncated, or no DICOM object");
    }
    if (parsed.bad()) refuse(path, parsed.text());
}

/// Parses the object without the groups of its frames, which stay in the file. False where the toolkit finds
/// anything to object to in them; `file` is of no use then.
bool parseAround(DcmFileFormat& file, const std::string& path, const std::shared_ptr<ObjectFile>& bytes,
                 Uint32 maxReadLength, const Unparsed& unparsed) {
    const FrameGroups& groups = *unparsed.groups;
    parse(file, path, bytes, unparsed.foreign.with(groups.begin, groups.end), maxReadLength);
    auto items = std::make_unique<FileItems>(
        DCM_PerFrameFunctionalGroupsSequence,
        [bytes, from = groups.items] { return std::make_unique<ShallowFileStream>(bytes, LeftOut{}, from); },
        groups.itemsEnd - groups.items, file.getDataset()->getOriginalXfer(), maxReadLength);
    if (items->eachItem([](DcmItem&) { return EC_Normal; }).bad()) return false;
    if (file.getDataset()->insert(items.get()).bad()) return false;
    (void)items.release();
    return true;
}

}  // namespace

ObjectValues valuesFor(bool verbose, bool dumponly, bool asksForTags, bool keepsForeign) {
    // Only a dump of everything needs everything; a query needs the values it asks for.
    if (verbose && dumponly) return ObjectValues::allForListing;
    if (verbose || dumponly) return ObjectValues::onDemand;
    // What nobody asks for and no copy keeps would be parsed only to be thrown away.
    if (asksForTags) return keepsForeign ? ObjectValues::onDemand : ObjectValues::onDemandWithoutForeign;
    return keepsForeign ? ObjectValues::forConversion : ObjectValues::withoutForeign;
}

void loadObject(DcmFileFormat& file, const std::string& path, Uint32 maxReadLength, ObjectValues values,
                UnknownSyntax unknown) {
    checkRegularFile(path, values);
    auto bytes = std::make_shared<ObjectFile>(path);
    Unparsed unparsed;
    if (const std::optional<RefusalText> cause = scanObject(*bytes, &unparsed, unknown)) refuse(path, *cause);
    const bool leavesForeign =
        values == ObjectValues::withoutForeign || values == ObjectValues::onDemandWithoutForeign;
    if (!leavesForeign) unparsed.foreign = {};
    const bool converts = values == ObjectValues::withoutForeign || values == ObjectValues::forConversion;
    if (!converts) unparsed.groups.reset();
    const bool leavesGroups =
        unparsed.groups && unparsed.groups->itemsEnd - unparsed.groups->items >= kLeastLeftBytes;
    if (!leavesGroups || !parseAround(file, path, bytes, maxReadLength, unparsed)) {
        if (leavesGroups) file.clear();
        parse(file, path, std::move(bytes), unparsed.foreign, maxReadLength);
    }
    if (!looksLikeAnObject(file)) refuse(path, "is not a DICOM object");
    if (file.getDataset()->card() == 0 && unparsed.foreign.empty()) refuse(path, "holds no data set");
    if (values != ObjectValues::allForListing) return;
    const OFCondition loaded = file.loadAllDataIntoMemory();
    if (loaded.bad()) refuse(path, loaded.text());
}

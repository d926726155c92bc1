// The parts of an object whose conversion is spread: how a servant records one, and how the last one puts
// them together.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include <dcmtk/dcmdata/dcdeftag.h>

#include "hsutils/StageClock.h"
#include "imgproc/progress.h"
#include "pack/PackError.h"
#include "pack/PackIndex.h"
#include "pack/PackWriter.h"
#include "vintakd/viewer/partfacts.h"
#include "vintakd/viewer/vintakprocess.h"
#include "vintakd/viewer/vintakrawimage.h"

bool CVintakProcess::beginPart() {
    const std::string folder = m_files->partsFolder();
    constexpr mode_t kMode = 0777;  // the mask of the process takes from it
    try {
        if (mkdir(folder.c_str(), kMode) != 0 && errno != EEXIST)
            throw pack::PackError(folder + " cannot be made (" + std::strerror(errno) + ")");
        m_facts = std::make_unique<PartFactsWriter>(m_files->factsOfPart(m_files->part.number), part());
    } catch (const pack::PackError& error) {
        reportFailure(error.what(), ErrorClass::output);
        return false;
    }
    return true;
}

bool CVintakProcess::recordImage(CVintakRawImage& raw) {
    try {
        m_facts->add(raw.findings().value(), raw.describedLine());
    } catch (const pack::PackError& error) {
        reportFailure(error.what(), ErrorClass::output);
        return false;
    }
    return true;
}

std::optional<int> CVintakProcess::takeImages(std::string& colorModel) {
    if (!m_files->part.joins()) return std::nullopt;
    const InStage writing(Stage::write);
    FramePart before;
    try {
        if (m_pack) m_pack->shareRaws(m_files->rawsOfParts());
        for (uint32_t number = 1; number <= m_files->part.parts; ++number)
            takePart(number, before);
        Sint32 frames = 1;
        dataset()->findAndGetSint32(DCM_NumberOfFrames, frames);
        if (static_cast<int64_t>(before.last) != frames)
            throw pack::PackError("the parts are not all frames of the object");
    } catch (const pack::PackError& error) {
        reportFailure(error.what(), ErrorClass::output);
        return 1;
    }
    colorModel = before.colorModel;
    return 0;
}

/// Takes what a part found and packed. The parts follow one another in all that the frames of one might have
/// had from those before them, or it would not be what one servant makes of them.
void CVintakProcess::takePart(uint32_t number, FramePart& before) {
    PartFactsReader facts(m_files->factsOfPart(number));
    FrameFindings findings;
    for (std::string line; facts.next(findings, line);) {
        quota().take(line.size());
        std::fwrite(line.data(), 1, line.size(), m_descFile.get());
        m_descFile.noteError();
        takeImage(findings);
        if (progressCallback()) progressCallback()->onImageConverted();
    }
    const FramePart& part = facts.part();
    const bool follows =
        part.first == before.last + 1 &&
        (number == 1 || (part.firstFragment == before.endFragment && part.colorModel == before.colorModel));
    if (!follows) {
        reportFailure("part " + std::to_string(number) + " does not follow the one before it");
        throw pack::PackError("the object cannot be converted in parts");
    }
    quota().take(facts.bytesTaken());
    if (m_pack) m_pack->takeOver(m_files->partPrefix(number), facts.raws());
    before = part;
}

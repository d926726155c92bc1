#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <cstdint>
#include <memory>
#include <vector>

class IDicomTagParser2;

/// What is called for an element that has a registration. The parser is the object that runs the walk; its
/// current element is the input.
using TagHandler = void (*)(IDicomTagParser2*);

/// How far a registration reaches from its key on.
struct TagRange {
    uint16_t elements = 1;
    uint16_t groups = 1;
};

/// The overlay groups, 6000 to 60FF.
inline constexpr TagRange kOverlayGroups{1, 0x100};

/// Looks at every element before its handler. False: the element is not dispatched.
using TagPreprocess = bool (*)(IDicomTagParser2*);

/// The preprocess function of a walk that wants none: always true.
bool NoPreprocessFunction(IDicomTagParser2* parser);

/// A node of the handler table: the range [start, end) of numbers that it answers for.
class IDicomTagParserData {
public:
    virtual ~IDicomTagParserData() = default;
    IDicomTagParserData(const IDicomTagParserData&) = delete;
    IDicomTagParserData& operator=(const IDicomTagParserData&) = delete;

    /// Offers an element to the node. `tag` is group << 16 | element (for an element node the element number
    /// alone), `dynData` what InitTag() returned. True: the node stays active for the elements that follow.
    virtual bool CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData) = 0;

    /// The state of one walk for this node, or null. To be handed back to ReleaseTagData().
    virtual void* InitTag() = 0;
    virtual void ReleaseTagData(void* dynData) = 0;

    uint32_t start() const { return m_start; }
    uint32_t end() const { return m_end; }
    const DcmTagKey& key() const { return m_key; }
    bool contains(uint32_t number) const { return m_start <= number && number < m_end; }

protected:
    IDicomTagParserData(uint32_t start, uint32_t end, const DcmTagKey& key)
        : m_start(start), m_end(end), m_key(key) {}

private:
    uint32_t m_start;
    uint32_t m_end;
    DcmTagKey m_key;
};

/// Element node: one handler for a range of element numbers of its group.
class SDicomTagParserData2 : public IDicomTagParserData {
public:
    SDicomTagParserData2(uint32_t start, uint32_t count, const DcmTagKey& key, TagHandler handler)
        : IDicomTagParserData(start, start + count, key), m_handler(handler) {}

    bool CheckTag(unsigned int element, IDicomTagParser2* parser, void* dynData) override;
    void* InitTag() override { return nullptr; }
    void ReleaseTagData(void*) override {}

private:
    TagHandler m_handler;
};

/// Where a walk stands within a group node.
struct SDicomTagParserGroupDataDynData {
    static constexpr uint32_t kNoGroup = 0xFFFFFFFF;
    static constexpr uint32_t kNoCreator = 0xFFFFFFFF;

    size_t cursor = 0;  ///< first element node not yet passed in the current group
    SDicomTagParserData2* activeElement = nullptr;  ///< element node whose range is in progress
    uint32_t currentGroup = kNoGroup;               ///< group << 16 that this state belongs to
    uint32_t creatorFound = kNoCreator;             ///< private nodes: low byte of the creator element
};

/// Group node: the element nodes of one group, or of a run of groups such as the overlays 6000 to 60FF.
class SDicomTagParserGroupData : public IDicomTagParserData {
public:
    SDicomTagParserGroupData(uint32_t group, uint32_t groupCount);

    /// Inserts an element node behind every node whose start is not larger. `tag` is the number to match.
    /// `privateCreator` has no meaning here; the group node carries it.
    void addTag(unsigned int tag, const DcmTagKey& key, TagHandler handler, const char* privateCreator,
                unsigned int elementCount);
    void removeAllTags();

    bool CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData) override;
    void* InitTag() override;
    void ReleaseTagData(void* dynData) override;

    /// True for tags that this kind of node never dispatches: a plain node ignores private tags.
    virtual bool FilteredTag(unsigned int tag) const;

    /// The creator that a private node asks for, null for a plain one.
    virtual const char* privateCreator() const { return nullptr; }

protected:
    static void startGroup(SDicomTagParserGroupDataDynData& state, uint32_t tag);
    bool moreGroupsFollow(uint32_t tag) const;

private:
    std::vector<std::unique_ptr<SDicomTagParserData2>> m_elements;
};

/// Group node of a private group: dispatches a block's elements by their low byte once its creator was seen.
/// Without a creator text every element of the group is matched by its full number.
class SDicomTagParserPrivateGroupData : public SDicomTagParserGroupData {
public:
    /// `creator` is not copied: a literal, or a text that outlives the table.
    SDicomTagParserPrivateGroupData(uint32_t group, uint32_t groupCount, const char* creator)
        : SDicomTagParserGroupData(group, groupCount), m_creator(creator) {}

    bool CheckTag(unsigned int tag, IDicomTagParser2* parser, void* dynData) override;
    bool FilteredTag(unsigned int tag) const override;
    const char* privateCreator() const override { return m_creator; }

private:
    const char* m_creator;
};

/// The handler table of one process: group nodes sorted by their start, each with its sorted element nodes.
class SDicomTagGroupList {
public:
    SDicomTagGroupList() = default;
    virtual ~SDicomTagGroupList() = default;
    SDicomTagGroupList(const SDicomTagGroupList&) = delete;
    SDicomTagGroupList& operator=(const SDicomTagGroupList&) = delete;

    /// Registers the owner's handlers.
    virtual void initFunction() {}

    /// Registers `handler` for `key`. `privateCreator` selects the block of an odd group and is ignored for
    /// an even one.
    void addTag(const DcmTagKey& key, TagHandler handler, const char* privateCreator, TagRange range = {});
    void ReleaseTags();

    const std::vector<std::unique_ptr<SDicomTagParserGroupData>>& groups() const { return m_groups; }

private:
    std::vector<std::unique_ptr<SDicomTagParserGroupData>> m_groups;
};

/// Set while lists are searched by group: element 0 then stands for its whole group in tagcomp().
extern bool isGrouped;

/// Compares two DcmTagKey for sorting and binary search: -1, 0 or 1.
int tagcomp(const void* a, const void* b);

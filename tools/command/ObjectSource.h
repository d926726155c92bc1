#pragma once

#include <functional>
#include <string>
#include <vector>

#include "vintakd/folderidentity.h"

/// An object to work on, or what stands in its way.
struct FoundObject {
    std::string path;
    std::string folder{};   ///< to be kept below the output prefix: empty or with a '/' at its end
    std::string problem{};  ///< why nothing can be done with it
    bool found = false;     ///< in a folder or a list, not named itself: folders of its results are made
};

/// The objects behind words: a file as it is named; of a folder, its files and those of its folders that
/// begin as a DICOM file does ("DICM" at byte 128), by name, but no processed copy (X.pdcm beside X.desc).
/// Folders behind symbolic links are not entered.
/// Holds the names of the folders that it is in, nothing else, however many objects there are.
class ObjectSource {
public:
    /// One word, which is given back in its argument; false when there is none left.
    using Words = std::function<bool(std::string&)>;

    /// `keepFolders`: what stands before the name of a word is kept below the output prefix, as it does in a
    /// list; otherwise only what lies below a folder that is named.
    ObjectSource(Words words, bool keepFolders) : m_words(std::move(words)), m_keepFolders(keepFolders) {}

    /// Nothing in this folder is found: what is put there comes from here.
    void leaveOut(const std::string& folder) { m_leftOut = vintakd::identifyFolder(folder); }

    /// False when there is nothing left. What cannot be read is found with its problem.
    bool next(FoundObject& object);

private:
    /// A folder that is being gone through.
    struct Level {
        std::string path;
        std::string kept;  ///< of the output
        std::vector<std::string> names;
        size_t at = 0;
    };

    bool takeWord(const std::string& word, FoundObject& object);
    bool takeEntry(FoundObject& object);
    bool enter(const std::string& path, const std::string& kept, FoundObject& object);

    Words m_words;
    bool m_keepFolders;
    vintakd::FolderIdentity m_leftOut;
    std::vector<Level> m_levels;
};

/// The words of a list, one after another.
ObjectSource::Words wordsOf(std::vector<std::string> list);
/// The words of a list that is read as they are asked for: ListReader.h.
ObjectSource::Words wordsOfList(const std::string& path, char separator);

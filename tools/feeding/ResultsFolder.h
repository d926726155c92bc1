#pragma once

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <string>

/// What is no earlier version of these results stands where they would, or results of another object around
/// or within them; the text says so.
class NameTaken : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A folder in which the results of an object appear all at once, by one rename; several programs, on several
/// hosts too, may fill it. What is not complete lies in its hidden folder ".partial", where each program has
/// a corner of its own. Usable from several threads at once. Every call but the destructor throws
/// std::runtime_error where the file system refuses.
class ResultsFolder {
public:
    /// Makes the folder; takes a corner and clears it of what a program left there that was killed. `sync`:
    /// results are on the disk before they are seen, and under their name when publish() returns. By the file
    /// `mark` results of an object are known.
    ResultsFolder(std::string path, std::string mark, bool sync);
    ~ResultsFolder();
    ResultsFolder(const ResultsFolder&) = delete;
    ResultsFolder& operator=(const ResultsFolder&) = delete;

    const std::string& path() const { return m_path; }
    /// An empty folder that nobody ever had: a servant whose client was killed may still write into its own.
    std::string newPlace();
    /// Moves a place to "`key`" in the folder; a '/' in it makes folders. What was there is thrown away after
    /// that. Where the file system can exchange two names there is no moment without any results. Throws
    /// NameTaken where results would come to lie in those of another object, or in place of what are none;
    /// the place is then where it was.
    void publish(const std::string& place, const std::string& key) const;
    /// Deletes a place, where it still is.
    static void discard(const std::string& place);

private:
    /// Whether nothing stands there yet; throws NameTaken.
    bool checkAround(const std::string& key) const;
    void checkAbove(const std::string& key) const;
    void checkReplaceable(const std::string& folder, const std::string& shownAs) const;
    bool takeCorner(const std::string& corner);
    /// Returns where that is now which was there; empty for nothing.
    static std::string exchange(const std::string& place, const std::string& target);
    static void takeBack(const std::string& place, const std::string& former, const std::string& target);

    std::string m_path;
    std::string m_mark;
    bool m_sync;
    std::string m_corner;
    int m_lock = -1;
    std::atomic<uint64_t> m_places{0};
};

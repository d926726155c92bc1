#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// How an overlay gets its bitmap; the numbers are the read modes of the overlay's state.
enum OVERLAY_READ_MODE {
    OVERLAY_READ_CHOOSE = 0,  ///< only as an argument: decide by bits allocated and bit position
    OVERLAY_READ_DATA = 1,    ///< from Overlay Data (60xx,3000)
    OVERLAY_READ_PIXELS = 2   ///< from a bit of the pixel samples
};

/// What became of an overlay's bitmap.
enum OVERLAY_STATUS {
    OVERLAY_IN_PROGRESS = 0,
    OVERLAY_NOT_APPLICABLE = 1,  ///< neither own data nor a bit of the samples
    OVERLAY_DATA_PRESENT = 2,    ///< asked to start although it had a bitmap
    OVERLAY_SIZE_ZERO = 3,
    OVERLAY_NO_DATA = 5,
    OVERLAY_OVERFLOW = 6,  ///< more data came than the bitmap holds
    OVERLAY_COMPLETE = 7
};

/// One overlay plane: the attributes of one group 60xx and its bitmap, one bit per pixel, row after row
/// without padding between rows, the first pixel in the least significant bit of the first byte.
///
/// Overlay troubles never fail a conversion, they only show in the status. Not thread safe.
class COverlay {
public:
    /// `name` is the decimal number of the slot.
    explicit COverlay(const std::string& name) : m_name(name) {}

    /// Prepares a zeroed bitmap of `size` bytes. With OVERLAY_READ_CHOOSE the overlay finds its read mode
    /// itself: own data for 1 bit allocated at position 0, a bit of the samples for more bits at another
    /// position, else it is not applicable. Returns the status; without success the bitmap stays as it was.
    int initData(unsigned int size, OVERLAY_READ_MODE mode);

    /// Appends `size` bytes of Overlay Data to the bitmap; returns the status. Bytes beyond the bitmap are
    /// refused whole.
    int putData(const unsigned char* data, unsigned int size);

    /// Settles the status when nothing more will come and returns it.
    int finalizeData();

    /// Writes the bitmap to a new file: 0 written, 1 no data, 2 cannot open, 3 short write (the file is
    /// deleted).
    int writeToFile(const char* path) const;

    /// Whether bits of the pixel samples are still wanted: read from samples, a bit position that is not 0,
    /// status 0.
    bool takesSampleBits() const {
        return m_readMode == OVERLAY_READ_PIXELS && m_bitPosition != 0 && m_status == OVERLAY_IN_PROGRESS;
    }

    /// Appends one bit to the bitmap; a full bitmap takes none and gets OVERLAY_OVERFLOW. Only after
    /// initData().
    void addBit(bool bit);

    /// addBit() of every sample's bit at the overlay's bit position; bits beyond the sample's width are 0.
    void addSampleBits(const uint16_t* samples, size_t count);
    void addSampleBits(const uint8_t* samples, size_t count);

    void setRows(uint16_t rows) { m_rows = rows; }
    void setColumns(uint16_t columns) { m_columns = columns; }
    void setOrigin(int16_t row, int16_t column) { m_origin = {row, column}; }
    void setBitsAllocated(uint16_t bits) { m_bitsAllocated = bits; }
    void setBitPosition(uint16_t position) { m_bitPosition = position; }
    void setRegion(bool region) { m_region = region; }

    const std::string& name() const { return m_name; }
    uint16_t rows() const { return m_rows; }
    uint16_t columns() const { return m_columns; }
    /// Row and column of the overlay's first pixel in the image, from 1; (60xx,0050).
    const std::array<int16_t, 2>& origin() const { return m_origin; }
    uint16_t bitsAllocated() const { return m_bitsAllocated; }
    uint16_t bitPosition() const { return m_bitPosition; }
    bool isRegion() const { return m_region; }
    int readMode() const { return m_readMode; }
    int status() const { return m_status; }
    uint32_t pixelCount() const { return m_pixelCount; }
    /// The bitmap; empty until initData() succeeded.
    const std::vector<unsigned char>& data() const { return m_data; }
    bool hasData() const { return !m_data.empty(); }

private:
    template <typename Sample>
    void addBitsOf(const Sample* samples, size_t count);

    std::string m_name;
    std::vector<unsigned char> m_data;
    uint16_t m_rows = 0;
    uint16_t m_columns = 0;
    std::array<int16_t, 2> m_origin{1, 1};
    uint16_t m_bitsAllocated = 0;
    uint16_t m_bitPosition = 0;
    bool m_region = false;
    int m_readMode = OVERLAY_READ_CHOOSE;
    uint32_t m_pixelCount = 0;
    uint32_t m_bitIndex = 0;      ///< next bit of the byte in work, while bits are added
    uint32_t m_bytesWritten = 0;  ///< bytes completed
    int m_status = OVERLAY_IN_PROGRESS;
};

/// The overlays of one object, in the order of their groups; it owns them.
class COverlayArray {
public:
    static constexpr int kSlotCount = 16;

    /// Makes a new overlay in the next free slot and returns the slot's number, -1 when all are used.
    int createNewOverlay();

    /// The overlay of a slot, null when the slot is empty or does not exist.
    COverlay* at(int slot) { return slot >= 0 && slot < m_used ? m_slots[slot].get() : nullptr; }
    const COverlay* at(int slot) const { return slot >= 0 && slot < m_used ? m_slots[slot].get() : nullptr; }

    /// Number of slots in use; they are filled from slot 0 upward.
    int count() const { return m_used; }

private:
    std::array<std::unique_ptr<COverlay>, kSlotCount> m_slots;
    int m_used = 0;
};

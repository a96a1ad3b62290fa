#include "provider/rows/RowCache.h"

#include <cstring>
#include <utility>

namespace zel::provider {
namespace {

// A row's encoding: the number of values and the rowid (0, or 1 and the number), then per
// value its tag and its data. Numbers are variable-length (7 bits a byte, low bits first;
// signed ones zigzag-mapped so that small negative numbers stay short).
enum Tag : BYTE {
    kNull,
    kInteger,     // the number
    kReal,        // the double's 8 bytes
    kWideText,    // the length in code units, then the UTF-16 code units
    kNarrowText,  // the length, then one byte per code unit (every unit below 256)
    kBlob,        // the length in bytes, then the bytes
};

size_t NumberSize(std::uint64_t value) {
    size_t size = 1;
    for (; value >= 0x80; value >>= 7) ++size;
    return size;
}

BYTE* PutNumber(BYTE* out, std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) *out++ = static_cast<BYTE>(value | 0x80);
    *out++ = static_cast<BYTE>(value);
    return out;
}

const BYTE* GetNumber(const BYTE* in, std::uint64_t& value) {
    value = 0;
    for (int shift = 0;; shift += 7) {
        const BYTE b = *in++;
        value |= static_cast<std::uint64_t>(b & 0x7F) << shift;
        if (!(b & 0x80)) return in;
    }
}

std::uint64_t ZigZag(std::int64_t value) {
    return (static_cast<std::uint64_t>(value) << 1) ^ static_cast<std::uint64_t>(value >> 63);
}

std::int64_t UnZigZag(std::uint64_t value) {
    return static_cast<std::int64_t>(value >> 1) ^ -static_cast<std::int64_t>(value & 1);
}

bool IsNarrow(const std::wstring& text) {
    for (wchar_t unit : text)
        if (unit > 0xFF) return false;
    return true;
}

size_t EncodedSize(const Cell& cell) {
    if (const auto* number = std::get_if<std::int64_t>(&cell)) return 1 + NumberSize(ZigZag(*number));
    if (std::holds_alternative<double>(cell)) return 1 + sizeof(double);
    if (const auto* text = std::get_if<std::wstring>(&cell))
        return 1 + NumberSize(text->size()) + text->size() * (IsNarrow(*text) ? 1 : sizeof(wchar_t));
    if (const auto* bytes = std::get_if<Bytes>(&cell)) return 1 + NumberSize(bytes->size()) + bytes->size();
    return 1;
}

BYTE* Encode(BYTE* out, const Cell& cell) {
    if (const auto* number = std::get_if<std::int64_t>(&cell)) {
        *out++ = kInteger;
        return PutNumber(out, ZigZag(*number));
    }
    if (const auto* real = std::get_if<double>(&cell)) {
        *out++ = kReal;
        memcpy(out, real, sizeof(double));
        return out + sizeof(double);
    }
    if (const auto* text = std::get_if<std::wstring>(&cell)) {
        const bool narrow = IsNarrow(*text);
        *out++ = narrow ? kNarrowText : kWideText;
        out = PutNumber(out, text->size());
        if (!narrow) {
            memcpy(out, text->data(), text->size() * sizeof(wchar_t));
            return out + text->size() * sizeof(wchar_t);
        }
        for (wchar_t unit : *text) *out++ = static_cast<BYTE>(unit);
        return out;
    }
    if (const auto* bytes = std::get_if<Bytes>(&cell)) {
        *out++ = kBlob;
        out = PutNumber(out, bytes->size());
        if (!bytes->empty()) memcpy(out, bytes->data(), bytes->size());
        return out + bytes->size();
    }
    *out++ = kNull;
    return out;
}

const BYTE* Decode(const BYTE* in, Cell& cell) {
    const BYTE tag = *in++;
    std::uint64_t number = 0;
    switch (tag) {
        case kInteger:
            in = GetNumber(in, number);
            cell = UnZigZag(number);
            return in;
        case kReal: {
            double real = 0;
            memcpy(&real, in, sizeof real);
            cell = real;
            return in + sizeof real;
        }
        case kWideText: {
            in = GetNumber(in, number);
            std::wstring& text = Holding<std::wstring>(cell);
            text.resize(static_cast<size_t>(number));
            memcpy(text.data(), in, text.size() * sizeof(wchar_t));
            return in + text.size() * sizeof(wchar_t);
        }
        case kNarrowText: {
            in = GetNumber(in, number);
            std::wstring& text = Holding<std::wstring>(cell);
            text.resize(static_cast<size_t>(number));
            for (wchar_t& unit : text) unit = *in++;
            return in;
        }
        case kBlob: {
            in = GetNumber(in, number);
            Bytes& bytes = Holding<Bytes>(cell);
            bytes.assign(in, in + number);
            return in + number;
        }
        default:
            cell = std::monostate{};
            return in;
    }
}

}  // namespace

RowCache::RowCache(std::unique_ptr<RowSource> source, size_t maxRows, RowStoreLimits limits)
    : m_source(std::move(source)), m_maxRows(maxRows), m_limits(limits) {}

size_t RowCache::SpilledBlocks() const noexcept {
    size_t spilled = 0;
    for (const Block& block : m_blocks) spilled += block.spilled ? 1 : 0;
    return spilled;
}

bool RowCache::Load(size_t index) {
    while (index >= m_rows.size()) {
        if (m_exhausted || (m_maxRows && m_rows.size() >= m_maxRows)) {
            m_exhausted = true;
            return false;
        }
        // A row the source handed out is not read again: when storing it fails (memory), it
        // stays pending for the next call instead of being lost.
        if (!m_readPending) {
            if (!m_source->Next(m_read)) {
                m_exhausted = true;
                return false;
            }
            m_readPending = true;
        }
        CachedRow row;
        Store(m_read, row);
        m_rows.push_back(row);
        m_readPending = false;
        // The row just read is the one a forward fetch reads next: it is kept as the decoded
        // row, so that reading it needs no decoding. The next source read reuses the buffers
        // of the row decoded before.
        std::swap(m_read, m_decoded);
        m_decodedIndex = m_rows.size() - 1;
    }
    return true;
}

void RowCache::LoadAll() {
    while (Load(m_rows.size())) {
    }
}

bool RowCache::NextVisible(size_t& gap) {
    for (size_t i = gap; Load(i); ++i) {
        if (!m_rows[i].deleted) {
            gap = i + 1;
            return true;
        }
    }
    return false;
}

bool RowCache::PrevVisible(size_t& gap) {
    for (size_t i = gap; i > 0; --i) {
        if (!m_rows[i - 1].deleted) {
            gap = i - 1;
            return true;
        }
    }
    return false;
}

std::vector<size_t> RowCache::Fetch(DBROWOFFSET offset, DBROWCOUNT count, bool& endOfRowset) {
    std::vector<size_t> fetched;
    endOfRowset = false;
    if (m_atStart && (offset < 0 || (offset == 0 && count < 0))) {
        LoadAll();
        m_gap = m_rows.size();
    }
    m_atStart = false;
    size_t gap = m_gap;
    for (DBROWOFFSET i = 0; i < offset; ++i) {
        if (!NextVisible(gap)) {
            LoadAll();
            m_gap = m_rows.size();
            endOfRowset = true;
            return fetched;
        }
    }
    for (DBROWOFFSET i = 0; i > offset; --i) {
        if (!PrevVisible(gap)) {
            m_gap = 0;
            endOfRowset = true;
            return fetched;
        }
    }
    const DBROWCOUNT wanted = count < 0 ? -count : count;
    for (DBROWCOUNT i = 0; i < wanted; ++i) {
        if (count > 0) {
            if (!NextVisible(gap)) break;
            fetched.push_back(gap - 1);
        } else {
            if (!PrevVisible(gap)) break;
            fetched.push_back(gap);
        }
    }
    m_gap = gap;
    endOfRowset = static_cast<DBROWCOUNT>(fetched.size()) < wanted;
    return fetched;
}

void RowCache::Restart() noexcept {
    m_gap = 0;
    m_atStart = true;
}

CachedRow* RowCache::Find(HROW handle) noexcept {
    CachedRow* row = FindAny(handle);
    return row && row->refs > 0 ? row : nullptr;
}

CachedRow* RowCache::FindAny(HROW handle) noexcept {
    if (handle == DB_NULL_HROW) return nullptr;
    size_t index = IndexOf(handle);
    return index < m_rows.size() ? &m_rows[index] : nullptr;
}

size_t RowCache::Append(const SourceRow& row) {
    CachedRow cached;
    Store(row, cached);
    m_rows.push_back(cached);
    return m_rows.size() - 1;
}

const SourceRow& RowCache::Values(size_t index) {
    if (index != m_decodedIndex) {
        m_decodedIndex = SIZE_MAX;  // stays unset if decoding fails half-way
        const BYTE* in = Encoded(m_rows[index]);
        std::uint64_t count = 0;
        in = GetNumber(in, count);
        std::uint64_t rowid = 0;
        in = GetNumber(in, rowid);
        if (rowid == 0) {
            m_decoded.rowid.reset();
        } else {
            in = GetNumber(in, rowid);
            m_decoded.rowid = UnZigZag(rowid);
        }
        m_decoded.cells.resize(static_cast<size_t>(count));
        for (Cell& cell : m_decoded.cells) in = Decode(in, cell);
        m_decodedIndex = index;
    }
    return m_decoded;
}

void RowCache::Replace(size_t index, const SourceRow& row) {
    m_decodedIndex = SIZE_MAX;
    Store(row, m_rows[index]);
}

void RowCache::Store(const SourceRow& row, CachedRow& where) {
    size_t size = NumberSize(row.cells.size()) + 1 + (row.rowid ? NumberSize(ZigZag(*row.rowid)) : 0);
    for (const Cell& cell : row.cells) size += EncodedSize(cell);
    BYTE* out = nullptr;
    if (size > m_limits.blockSize / 4) {
        const size_t block = AddBlock(size);
        m_blocks[block].used = size;
        out = m_blocks[block].bytes.get();
        where.block = static_cast<std::uint32_t>(block);
        where.offset = 0;
    } else {
        if (size > m_room) {
            const size_t block = AddBlock(m_limits.blockSize);
            // The block written so far is full: its rows end where the room began.
            if (m_writing != SIZE_MAX) m_blocks[m_writing].used = m_limits.blockSize - m_room;
            m_writing = block;
            m_free = m_blocks[block].bytes.get();
            m_room = m_limits.blockSize;
        }
        out = m_free;
        m_free += size;
        m_room -= size;
        where.block = static_cast<std::uint32_t>(m_writing);
        where.offset = static_cast<std::uint32_t>(out - m_blocks[m_writing].bytes.get());
    }
    out = PutNumber(out, row.cells.size());
    if (row.rowid) {
        *out++ = 1;
        out = PutNumber(out, ZigZag(*row.rowid));
    } else {
        *out++ = 0;
    }
    for (const Cell& cell : row.cells) out = Encode(out, cell);
    // Only once the row is written may older blocks go: the new block is then whole.
    if (m_residentBytes > m_limits.residentBytes) SpillOldBlocks();
}

size_t RowCache::AddBlock(size_t capacity) {
    Block block;
    block.bytes.reset(new BYTE[capacity]);
    block.capacity = capacity;
    m_blocks.push_back(std::move(block));
    m_residentBytes += capacity;
    return m_blocks.size() - 1;
}

// Moves the oldest blocks to the file, in the order they were written, until the blocks never
// written there fit the limit again. The block rows are being written into stays. A file that
// cannot be made or written leaves the blocks where they are: the rows are then kept in memory,
// as they would be without a file.
void RowCache::SpillOldBlocks() noexcept {
    while (m_residentBytes > m_limits.residentBytes && m_nextToSpill < m_blocks.size() &&
           m_nextToSpill != m_writing) {
        Block& block = m_blocks[m_nextToSpill];
        std::uint64_t at = 0;
        if (!m_spill.Write(block.bytes.get(), block.used, at)) return;
        block.spilled = true;
        block.spilledAt = at;
        m_residentBytes -= block.capacity;
        block.bytes.reset();
        ++m_nextToSpill;
    }
}

const BYTE* RowCache::Encoded(const CachedRow& row) {
    Block& block = m_blocks[row.block];
    if (!block.bytes) {
        std::unique_ptr<BYTE[]> bytes(new BYTE[block.used]);
        m_spill.Read(block.spilledAt, bytes.get(), block.used);
        // Room for it among the blocks read back: the oldest goes (it stays in the file).
        m_readBack.reserve(m_limits.readBackBlocks + 1);
        while (!m_readBack.empty() && m_readBack.size() >= m_limits.readBackBlocks) {
            m_blocks[m_readBack.front()].bytes.reset();
            m_readBack.erase(m_readBack.begin());
        }
        block.bytes = std::move(bytes);
        m_readBack.push_back(row.block);
    }
    return block.bytes.get() + row.offset;
}

}  // namespace zel::provider

// The rows a rowset has read, its row handles and its next fetch position. Rows are read from
// the source only as far as a fetch needs them and stay in memory until the rowset is released,
// so scrolling back never goes to the database again.
//
// Rows are kept compact, in about the space of their values: each row is one run of bytes in a
// store of large blocks (a tag byte per value, integers as variable-length numbers, text of
// code units below 256 one byte per character), and is decoded when a consumer reads it. Past
// a limit (64 MiB), the oldest full blocks move to a temporary file and come back, a few at a
// time, when a row in them is read again; so a large result costs the process little more
// memory than the limit, and reading forward never waits on the file.
//
// Fetch position: a point between two rows. A forward fetch returns the rows after it, a
// backward fetch the rows before it, and a skip moves it first; a negative skip or fetch right
// after the rowset opens or after RestartPosition starts from the end.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "provider/rows/RowSource.h"
#include "provider/rows/SpillFile.h"

namespace zel::provider {

struct CachedRow {
    std::uint32_t block = 0;   // the store block holding the row's values (see RowCache)
    std::uint32_t offset = 0;  // where they start in it
    ULONG refs = 0;            // handle references held by the consumer
    bool deleted = false;      // deleted through IRowsetChange: skipped by fetches
};

// How the cache keeps its store. The defaults serve rowsets; tests make them small.
struct RowStoreLimits {
    size_t blockSize = 1u << 20;         // a row bigger than a quarter block gets one of its own
    size_t residentBytes = 64u << 20;    // past this, the oldest full blocks go to the file
    size_t readBackBlocks = 4;           // blocks read back from the file kept at once
};

class RowCache {
public:
    // `maxRows` > 0 stops reading after that many rows (DBPROP_MAXROWS).
    RowCache(std::unique_ptr<RowSource> source, size_t maxRows, RowStoreLimits limits = {});

    // Blocks of rows now in the temporary file (diagnostics and tests).
    size_t SpilledBlocks() const noexcept;

    const RowSource& source() const noexcept { return *m_source; }

    // IRowset::GetNextRows' movement: returns the fetched rows' indexes and sets `endOfRowset`
    // when fewer than |count| rows were found.
    std::vector<size_t> Fetch(DBROWOFFSET offset, DBROWCOUNT count, bool& endOfRowset);
    void Restart() noexcept;

    // Row handles are the row index plus one; a handle is valid while its count is positive.
    static HROW HandleOf(size_t index) noexcept { return static_cast<HROW>(index + 1); }
    CachedRow* Find(HROW handle) noexcept;     // null for unknown or released handles
    CachedRow* FindAny(HROW handle) noexcept;  // released handles included
    size_t IndexOf(HROW handle) const noexcept { return static_cast<size_t>(handle) - 1; }

    // Reads every remaining row of the source. Done before the first change through
    // IRowsetChange, so that the running statement never meets the rowset's own changes (an
    // inserted row read twice, an updated row met again further down an index).
    void ReadToEnd() { LoadAll(); }
    // A row inserted through IRowsetChange joins the end of the rows.
    size_t Append(const SourceRow& row);

    // The values of the row at `index` (a valid index of a read row). The reference stays
    // valid until the next call of Values, Replace or Append. Throws std::bad_alloc.
    const SourceRow& Values(size_t index);
    // Replaces the values of the row at `index` (a change through IRowsetChange). The old
    // encoding's space is not reused.
    void Replace(size_t index, const SourceRow& row);

private:
    bool Load(size_t index);  // reads up to row `index`; false when the source ends first
    void LoadAll();
    bool NextVisible(size_t& gap);   // moves past the next undeleted row forwards
    bool PrevVisible(size_t& gap);   // moves before the previous undeleted row

    // Encodes `row` into the store and sets where it starts in `where` (its block and offset
    // only; on failure `where` is untouched).
    void Store(const SourceRow& row, CachedRow& where);
    // A new block of `capacity` bytes at the end of the store; older full blocks may go to the
    // file to make room.
    size_t AddBlock(size_t capacity);
    void SpillOldBlocks() noexcept;
    // The bytes of the row's encoding, its block read back from the file if needed. Valid
    // until the next call.
    const BYTE* Encoded(const CachedRow& row);

    struct Block {
        std::unique_ptr<BYTE[]> bytes;  // null while the block is only in the file
        size_t capacity = 0;
        size_t used = 0;
        bool spilled = false;           // a copy of the block is in the file, at spilledAt
        std::uint64_t spilledAt = 0;
    };

    std::unique_ptr<RowSource> m_source;
    size_t m_maxRows;
    RowStoreLimits m_limits;
    std::vector<CachedRow> m_rows;
    // The store: blocks written from the front; a block's bytes never move while it is held.
    std::vector<Block> m_blocks;
    size_t m_writing = SIZE_MAX;  // the block rows are being written into
    BYTE* m_free = nullptr;       // next free byte of that block
    size_t m_room = 0;            // bytes left after m_free
    size_t m_residentBytes = 0;   // capacity of the blocks never written to the file
    size_t m_nextToSpill = 0;     // the blocks before it went to the file, or could not
    std::vector<size_t> m_readBack;  // blocks read back from the file, oldest first
    SpillFile m_spill;
    SourceRow m_read;        // the row being read from the source (its buffers are reused)
    bool m_readPending = false;  // m_read came from the source but could not be stored yet
    SourceRow m_decoded;     // the row Values decoded last
    size_t m_decodedIndex = SIZE_MAX;
    bool m_exhausted = false;
    size_t m_gap = 0;
    bool m_atStart = true;
};

}  // namespace zel::provider

// The rows a rowset has read, its row handles and its next fetch position. Rows are read from
// the source only as far as a fetch needs them and stay in memory until the rowset is released,
// so scrolling back never goes to the database again.
//
// Rows are kept compact, in about the space of their values: each row is one run of bytes in a
// store of large blocks (a tag byte per value, integers as variable-length numbers, text of
// code units below 256 one byte per character), and is decoded when a consumer reads it.
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

namespace zel::provider {

struct CachedRow {
    const BYTE* encoded = nullptr;  // the row's values in the cache's store (see RowCache)
    ULONG refs = 0;                 // handle references held by the consumer
    bool deleted = false;           // deleted through IRowsetChange: skipped by fetches
};

class RowCache {
public:
    // `maxRows` > 0 stops reading after that many rows (DBPROP_MAXROWS).
    RowCache(std::unique_ptr<RowSource> source, size_t maxRows);

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

    // Encodes `row` into the store and returns where it starts.
    const BYTE* Store(const SourceRow& row);

    std::unique_ptr<RowSource> m_source;
    size_t m_maxRows;
    std::vector<CachedRow> m_rows;
    // The store: blocks written from the front, never moved or freed before the cache.
    std::vector<std::unique_ptr<BYTE[]>> m_blocks;
    BYTE* m_free = nullptr;  // next free byte of the last block
    size_t m_room = 0;       // bytes left after m_free
    SourceRow m_read;        // the row being read from the source (its buffers are reused)
    bool m_readPending = false;  // m_read came from the source but could not be stored yet
    SourceRow m_decoded;     // the row Values decoded last
    size_t m_decodedIndex = SIZE_MAX;
    bool m_exhausted = false;
    size_t m_gap = 0;
    bool m_atStart = true;
};

}  // namespace zel::provider

#include "provider/rows/RowCache.h"

namespace zel::lite {

RowCache::RowCache(std::unique_ptr<RowSource> source, size_t maxRows)
    : m_source(std::move(source)), m_maxRows(maxRows) {}

bool RowCache::Load(size_t index) {
    while (index >= m_rows.size()) {
        if (m_exhausted || (m_maxRows && m_rows.size() >= m_maxRows)) {
            m_exhausted = true;
            return false;
        }
        CachedRow row;
        if (!m_source->Next(row.data)) {
            m_exhausted = true;
            return false;
        }
        m_rows.push_back(std::move(row));
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

size_t RowCache::Append(SourceRow row) {
    CachedRow cached;
    cached.data = std::move(row);
    m_rows.push_back(std::move(cached));
    return m_rows.size() - 1;
}

}  // namespace zel::lite

#include "provider/rows/SpillFile.h"

#include <string>

#include "provider/errors/Errors.h"

namespace zel::provider {
namespace {

// Positions a synchronous transfer at `at`.
OVERLAPPED At(std::uint64_t at) {
    OVERLAPPED position = {};
    position.Offset = static_cast<DWORD>(at);
    position.OffsetHigh = static_cast<DWORD>(at >> 32);
    return position;
}

}  // namespace

bool SpillFile::Open() noexcept {
    if (m_file) return true;
    if (m_broken) return false;
    wchar_t folder[MAX_PATH + 1];
    wchar_t path[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
    if (length == 0 || length > MAX_PATH || !GetTempFileNameW(folder, L"zel", 0, path)) {
        m_broken = true;
        return false;
    }
    // GetTempFileNameW made the file; it is opened again to be deleted on close.
    m_file = AdoptFileHandle(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                         FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (!m_file) {
        DeleteFileW(path);
        m_broken = true;
        return false;
    }
    return true;
}

bool SpillFile::Write(const BYTE* bytes, size_t size, std::uint64_t& at) noexcept {
    if (!Open()) return false;
    OVERLAPPED position = At(m_end);
    DWORD written = 0;
    if (size > MAXDWORD || !WriteFile(m_file.get(), bytes, static_cast<DWORD>(size), &written, &position) ||
        written != size) {
        // What was written of this block is never read; later blocks stay in memory.
        m_broken = true;
        return false;
    }
    at = m_end;
    m_end += size;
    return true;
}

void SpillFile::Read(std::uint64_t at, BYTE* bytes, size_t size) {
    OVERLAPPED position = At(at);
    DWORD read = 0;
    if (!m_file || at + size > m_end ||
        !ReadFile(m_file.get(), bytes, static_cast<DWORD>(size), &read, &position) || read != size) {
        const DWORD error = GetLastError();
        Fail(E_FAIL, L"Rows the rowset kept in a temporary file could not be read back (error " +
                         std::to_wstring(error) + L").");
    }
}

}  // namespace zel::provider

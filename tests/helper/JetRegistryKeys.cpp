#include "tests/helper/JetRegistryKeys.h"

#include <stdexcept>

namespace zel::test {

const std::vector<std::wstring>& HelperEngineNames() {
    static const std::vector<std::wstring> names = {L"Jet 4.0", L"Excel", L"Xbase", L"Text"};
    return names;
}

const std::vector<std::wstring>& HelperIsamNames() {
    static const std::vector<std::wstring> names = {L"Excel 8.0",  L"Excel 5.0",  L"dBase 5.0",  L"dBase IV",
                                                    L"dBase III",  L"FoxPro 3.0", L"FoxPro 2.6", L"FoxPro 2.5",
                                                    L"HTML Export"};
    return names;
}

JetRegistryKeys::JetRegistryKeys() {
    m_mutex = CreateMutexW(nullptr, FALSE, kJetRegistryMutexName);
    if (!m_mutex) throw std::runtime_error("cannot create the Jet registry mutex");
    const DWORD wait = WaitForSingleObject(m_mutex, 60000);
    // An abandoned mutex was left by a crashed holder; the keys it made may still be there
    // and then count as pre-existing below.
    if (wait != WAIT_OBJECT_0 && wait != WAIT_ABANDONED) {
        CloseHandle(m_mutex);
        throw std::runtime_error("timed out waiting for the Jet registry mutex");
    }
    for (const auto& name : HelperEngineNames())
        if (Exists(kJetEnginesRoot + name)) m_preExisting.push_back(kJetEnginesRoot + name);
    for (const auto& name : HelperIsamNames())
        if (Exists(kJetIsamRoot + name)) m_preExisting.push_back(kJetIsamRoot + name);
}

JetRegistryKeys::~JetRegistryKeys() {
    Restore();
    ReleaseMutex(m_mutex);
    CloseHandle(m_mutex);
}

bool JetRegistryKeys::Exists(const std::wstring& path, REGSAM view) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_QUERY_VALUE | view, &key) != ERROR_SUCCESS)
        return false;
    RegCloseKey(key);
    return true;
}

// Creates the path one level at a time, so that every level that did not exist is known
// and can be removed again.
bool JetRegistryKeys::Create(const std::wstring& path, REGSAM view) {
    size_t end = 0;
    while (end != std::wstring::npos) {
        end = path.find(L'\\', end + 1);
        const std::wstring level = path.substr(0, end);
        HKEY key = nullptr;
        DWORD disposition = 0;
        if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, level.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                            KEY_QUERY_VALUE | view, nullptr, &key, &disposition) != ERROR_SUCCESS)
            return false;
        RegCloseKey(key);
        if (disposition == REG_CREATED_NEW_KEY) m_created.push_back({level, view});
    }
    return true;
}

void JetRegistryKeys::Restore() {
    // Children were created after their parents: delete in reverse order.
    for (auto it = m_created.rbegin(); it != m_created.rend(); ++it)
        RegDeleteKeyExW(HKEY_LOCAL_MACHINE, it->path.c_str(), it->view, 0);
    m_created.clear();
}

}  // namespace zel::test

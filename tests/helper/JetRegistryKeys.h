// Puts the Jet engine and ISAM format keys that the helper looks for into a chosen state
// under HKEY_LOCAL_MACHINE (32-bit view) of the shared Wine prefix, and puts them back as
// they were afterwards.
//
// Test programs of both architectures run at the same time in one prefix, so every user of
// these keys holds the named mutex kJetRegistryMutexName while it changes them and until it
// has restored them. Only keys that did not exist before are created, and exactly those are
// deleted again; a key that existed before is never deleted (a test that would need it gone
// is skipped instead).
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace zel::test {

inline constexpr wchar_t kJetRegistryMutexName[] = L"ZelPmDb32.Tests.JetRegistryKeys";
inline constexpr wchar_t kJetEnginesRoot[] = L"Software\\Microsoft\\Jet\\4.0\\Engines\\";
inline constexpr wchar_t kJetIsamRoot[] = L"Software\\Microsoft\\Jet\\4.0\\ISAM Formats\\";

class JetRegistryKeys {
public:
    // Takes the mutex (waits for other test programs). Throws std::runtime_error if it
    // cannot be had within a minute.
    JetRegistryKeys();
    JetRegistryKeys(const JetRegistryKeys&) = delete;
    JetRegistryKeys& operator=(const JetRegistryKeys&) = delete;
    // Restore(), then releases the mutex.
    ~JetRegistryKeys();

    // Makes Engines\<name> / ISAM Formats\<name> exist in the 32-bit view; false if it
    // could not be created.
    bool AddEngine(const std::wstring& name) { return Create(kJetEnginesRoot + name, KEY_WOW64_32KEY); }
    bool AddIsam(const std::wstring& name) { return Create(kJetIsamRoot + name, KEY_WOW64_32KEY); }
    // The same in the 64-bit view only, where the 32-bit Jet engine never registers.
    bool AddEngineIn64BitView(const std::wstring& name) { return Create(kJetEnginesRoot + name, KEY_WOW64_64KEY); }

    // Whether the key exists now in the given view.
    static bool Exists(const std::wstring& path, REGSAM view = KEY_WOW64_32KEY);
    // Keys of the helper's table that existed before this object touched anything.
    const std::vector<std::wstring>& PreExisting() const { return m_preExisting; }

    // Deletes every key this object created, deepest first; keys it did not create stay.
    void Restore();

private:
    struct CreatedKey {
        std::wstring path;
        REGSAM view;
    };
    bool Create(const std::wstring& path, REGSAM view);

    HANDLE m_mutex = nullptr;
    std::vector<CreatedKey> m_created;  // in creation order, parents before children
    std::vector<std::wstring> m_preExisting;
};

// Every engine and ISAM key name of the helper's format table.
const std::vector<std::wstring>& HelperEngineNames();
const std::vector<std::wstring>& HelperIsamNames();

}  // namespace zel::test

// What every provider's command object keeps whatever its database: the command text, the
// rowset properties the next Execute asks for, whether it is prepared, and which of its
// rowsets are still open. The ICommandText and ICommandProperties methods are implemented here
// once; a command forwards them and takes its lock() around its own work.
#pragma once

#include <windows.h>
#include <oledb.h>

#include <memory>
#include <mutex>
#include <string>

#include "provider/properties/PropertyStore.h"

namespace zel::provider {

class CommandState {
public:
    CommandState();

    std::mutex& lock() noexcept { return m_lock; }

    // The state below is read and changed under lock().
    bool hasText() const noexcept { return m_hasText; }
    const std::wstring& text() const noexcept { return m_text; }
    bool prepared() const noexcept { return m_prepared; }
    void SetPrepared(bool prepared) noexcept { m_prepared = prepared; }
    const PropertyStore& properties() const noexcept { return m_properties; }
    // Held by each rowset the command made; the count of holders tells whether one is open.
    std::shared_ptr<void> OpenToken() const { return m_openRowsets; }
    bool HasOpenRowset() const noexcept { return m_openRowsets.use_count() > 1; }

    // ICommandText. Dialects DBGUID_DEFAULT and DBGUID_SQL (another asked for in
    // GetCommandText gives DB_S_DIALECTIGNORED); DB_E_NOCOMMAND without text. SetCommandText
    // fails with DB_E_OBJECTOPEN while a rowset of the command is open; a null or empty text
    // clears the command. The text returned is the caller's (CoTaskMemFree).
    HRESULT GetCommandText(GUID* dialect, LPOLESTR* text);
    HRESULT SetCommandText(REFGUID dialect, LPCOLESTR text);

    // ICommandProperties over the rowset properties (DB_E_OBJECTOPEN while a rowset is open).
    HRESULT GetProperties(ULONG idSetCount, const DBPROPIDSET idSets[], ULONG* setCount, DBPROPSET** sets);
    HRESULT SetProperties(ULONG setCount, DBPROPSET sets[]);

private:
    std::mutex m_lock;
    std::shared_ptr<void> m_openRowsets = std::make_shared<int>(0);
    std::wstring m_text;
    bool m_hasText = false;
    bool m_prepared = false;
    PropertyStore m_properties;
};

}  // namespace zel::provider

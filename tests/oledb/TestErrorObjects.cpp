#include "tests/oledb/TestErrorObjects.h"

#include <windows.h>
#include <oledberr.h>
#include <oleauto.h>

#include "common/Bstr.h"
#include "common/ComObject.h"
#include "common/OleDbIids.h"

namespace zel::test {
namespace {

HRESULT CopyText(const std::optional<std::wstring>& text, BSTR* out) {
    if (!text) return E_FAIL;
    *out = Bstr(std::wstring_view(*text)).release();
    return S_OK;
}

class RecordInfo final : public ComObject<RecordInfo, IErrorInfo> {
public:
    explicit RecordInfo(TestErrorRecord record) : m_record(std::move(record)) {}
    STDMETHODIMP GetGUID(GUID* guid) override {
        *guid = m_record.guid;
        return S_OK;
    }
    STDMETHODIMP GetSource(BSTR* source) override { return CopyText(m_record.source, source); }
    STDMETHODIMP GetDescription(BSTR* description) override { return CopyText(m_record.description, description); }
    STDMETHODIMP GetHelpFile(BSTR* file) override { return CopyText(m_record.helpFile, file); }
    STDMETHODIMP GetHelpContext(DWORD* context) override {
        *context = m_record.helpContext;
        return S_OK;
    }

private:
    TestErrorRecord m_record;
};

class SqlInfo final : public ComObject<SqlInfo, ISQLErrorInfo> {
public:
    SqlInfo(std::wstring state, LONG native) : m_state(std::move(state)), m_native(native) {}
    STDMETHODIMP GetSQLInfo(BSTR* state, LONG* native) override {
        *state = Bstr(std::wstring_view(m_state)).release();
        *native = m_native;
        return S_OK;
    }

private:
    std::wstring m_state;
    LONG m_native;
};

class Records final : public ComObject<Records, IErrorInfo, IErrorRecords> {
public:
    explicit Records(std::vector<TestErrorRecord> records) : m_records(std::move(records)) {}
    // IErrorInfo of the collection itself: the first record's texts.
    STDMETHODIMP GetGUID(GUID* guid) override {
        *guid = GUID_NULL;
        return S_OK;
    }
    STDMETHODIMP GetSource(BSTR* source) override { return CopyText(std::wstring(L"collection"), source); }
    STDMETHODIMP GetDescription(BSTR* d) override { return CopyText(std::wstring(L"collection"), d); }
    STDMETHODIMP GetHelpFile(BSTR*) override { return E_FAIL; }
    STDMETHODIMP GetHelpContext(DWORD* context) override {
        *context = 0;
        return S_OK;
    }
    // IErrorRecords
    STDMETHODIMP AddErrorRecord(ERRORINFO*, DWORD, DISPPARAMS*, IUnknown*, DWORD) override { return E_NOTIMPL; }
    STDMETHODIMP GetBasicErrorInfo(ULONG, ERRORINFO*) override { return E_NOTIMPL; }
    STDMETHODIMP GetCustomErrorObject(ULONG index, REFIID riid, IUnknown** object) override {
        *object = nullptr;
        if (index >= m_records.size()) return DB_E_BADRECORDNUM;
        if (!m_records[index].sqlState) return S_OK;
        return SqlInfo::CreateInstance(nullptr, riid, reinterpret_cast<void**>(object), *m_records[index].sqlState,
                                       m_records[index].nativeError);
    }
    STDMETHODIMP GetErrorInfo(ULONG index, LCID, IErrorInfo** info) override {
        if (index >= m_records.size()) return DB_E_BADRECORDNUM;
        return RecordInfo::CreateInstance(nullptr, IID_IErrorInfo, reinterpret_cast<void**>(info), m_records[index]);
    }
    STDMETHODIMP GetErrorParameters(ULONG, DISPPARAMS*) override { return E_NOTIMPL; }
    STDMETHODIMP GetRecordCount(ULONG* count) override {
        *count = static_cast<ULONG>(m_records.size());
        return S_OK;
    }

private:
    std::vector<TestErrorRecord> m_records;
};

}  // namespace

ComPtr<IErrorInfo> MakeErrorInfo(const TestErrorRecord& record) {
    ComPtr<IErrorInfo> info;
    RecordInfo::CreateInstance(nullptr, IID_IErrorInfo, info.put_void(), record);
    return info;
}

ComPtr<IErrorInfo> MakeErrorRecords(const std::vector<TestErrorRecord>& records) {
    ComPtr<IErrorInfo> info;
    Records::CreateInstance(nullptr, IID_IErrorInfo, info.put_void(), records);
    return info;
}

}  // namespace zel::test

// Writing documents over and over keeps no memory: a server writes one query-result document
// per execution and one table-definition document per TblGetDef for as long as it runs.
#include <windows.h>
#include <psapi.h>

#include <gtest/gtest.h>

#include "oledb/KobOleDbCommand.h"
#include "tests/oledb/FakeRowset.h"
#include "xml/KobOleDbXML.h"
#include "xml/TableDefXml.h"

using namespace zel;
using namespace zel::test;

namespace {

constexpr int kWarmUp = 300;
constexpr int kDocuments = 3000;
// A few hundred bytes kept per document would be close to a megabyte here.
constexpr SIZE_T kAllowedGrowth = 256 * 1024;

// The process's private memory (PrivateUsage; Wine 8.0 reports it as PagefileUsage only).
SIZE_T PrivateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof counters;
    if (!GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                              sizeof counters))
        return 0;
    return counters.PrivateUsage ? counters.PrivateUsage : counters.PagefileUsage;
}

template <typename Write>
SIZE_T GrowthOver(Write&& write) {
    for (int i = 0; i < kWarmUp; ++i) write();
    const SIZE_T before = PrivateBytes();
    for (int i = 0; i < kDocuments; ++i) write();
    const SIZE_T after = PrivateBytes();
    return after > before ? after - before : 0;
}

TEST(DocumentMemory, QueryResultDocumentsKeepNoMemory) {
    auto result = std::make_shared<FakeResult>();
    result->columns = {{L"ID", DBTYPE_I4, 4}, {L"Title", DBTYPE_WSTR, 20}};
    result->rows = {{Value<LONG>(1), Text(L"Shaft")}, {Value<LONG>(2), Null()}};
    FakeConnection connection(result);
    KobOleDbCommand command;
    command.SetConnection(&connection);
    command.SetCommandText(L"SELECT");
    // The test provider keeps a log of every call; what executing alone keeps is not the
    // document's.
    const SIZE_T executing = GrowthOver([&] { ASSERT_EQ(kTriTrue, command.Execute()); });
    const SIZE_T writing = GrowthOver([&] {
        ASSERT_EQ(kTriTrue, command.Execute());
        KobOleDbXML writer;
        std::wstring xml;
        ASSERT_TRUE(writer.BuildQueryDataXml(&command, xml));
    });
    ASSERT_NE(0u, PrivateBytes());
    const SIZE_T growth = writing > executing ? writing - executing : 0;
    EXPECT_LT(growth, kAllowedGrowth) << kDocuments << " documents kept " << growth << " bytes";
}

TEST(DocumentMemory, TableDefinitionDocumentsKeepNoMemory) {
    const SIZE_T growth = GrowthOver([] {
        TableDefXml writer;
        ASSERT_TRUE(writer.BeginTableDef(L"Parts"));
        EXPECT_FALSE(writer.Xml().empty());
    });
    EXPECT_LT(growth, kAllowedGrowth) << kDocuments << " documents kept " << growth << " bytes";
}

}  // namespace

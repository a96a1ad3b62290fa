// The figures measured inside one 32-bit process, from the bottom of the stack up: SQLite
// alone, the embedded provider through OLE DB, the command object, the query-result
// document, and the service object's row-by-row methods without a process boundary.
#pragma once

#include <string>

#include "bench/BenchHarness.h"

namespace zel::bench {

struct LocalPlan {
    std::wstring database;          // Windows path of the data file (figure 1 reads it with SQLite)
    std::wstring connectionString;  // the provider on that file, or on another data source
    // Figures 2 to 5c on another provider's copy of the table: appended to the figure's label
    // ("2p") and, after a comma, to its title.
    std::string series;
    std::string seriesTitle;
    unsigned long long n = 0;       // rows of the table
    int warmups = 1;
    int runs = 5;
};

// 1: prepare, step and read every column as UTF-16 text with SQLite's own interface.
Measurement MeasureSqlite(const LocalPlan& plan);
// 2: ICommand::Execute, then GetNextRows of one row and GetData with the server's binding.
Measurement MeasureOleDb(const LocalPlan& plan);
// 3: KobOleDbCommand::Execute, FetchNext, FieldAsString of every column.
Measurement MeasureCommand(const LocalPlan& plan);
// 4: KobOleDbCommand::Execute and KobOleDbXML::BuildQueryDataXml.
Measurement MeasureDocument(const LocalPlan& plan);
// 5c: the walk of figure 5a made on an in-process ZelOleDbImpl.
Measurement MeasureServiceInProcess(const LocalPlan& plan);

// Where figure 3's time goes, call by call: passes over every row with a clock around each
// FetchNext and each FieldAsString; the median per call and share of each. A text table.
std::string FieldCostBreakdown(const LocalPlan& plan);

// One line saying whether the provider's session offers the schema rowsets the catalog
// figures read (IDBSchemaRowset with DBSCHEMA_TABLES and DBSCHEMA_COLUMNS), and if not, why.
std::string DescribeCatalogSupport(const std::wstring& connectionString);

}  // namespace zel::bench

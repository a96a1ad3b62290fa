// The figures measured from a 64-bit client across the process boundary: the row-by-row walk,
// execution with the query-result document, the cost of the cheapest call, and the catalog.
#pragma once

#include <string>
#include <vector>

#include "bench/BenchHarness.h"

namespace zel::bench {

struct RemotePlan {
    std::wstring connectionString;  // the embedded provider on the data file
    unsigned long long n = 0;       // rows of the table; tables of the catalog; calls of the floor
    int warmups = 1;
    int runs = 5;
    // Rows the row-by-row walk reads per run: the first rows of the result when it has more.
    unsigned long long walkRows = ~0ULL;
    // ConIsConnected calls made after each run of the walk (the paired floor, 6p).
    unsigned long long pairedCalls = 200;
};

// 5a: CmdFetchFirst, then CmdFieldAsString of every field and CmdFetchNext per row, over at
// most `plan.walkRows` rows. After each run, on the same server, `plan.pairedCalls` calls of
// ConIsConnected: the floor under the same machine load as that run (6p). Returns both.
std::vector<Measurement> MeasureRemoteFetch(const RemotePlan& plan);
// 5b: CmdExecute returning the query-result document; the server's peak memory.
Measurement MeasureRemoteDocument(const RemotePlan& plan);
// 6: ConIsConnected `plan.n` times per run on an open connection; 6b on a service object
// that has no connection (the call does not reach the provider).
Measurement MeasureCallFloor(const RemotePlan& plan, bool connected);
// 7a: TblOpen and TblGetTableList over a catalog of `plan.n` tables.
Measurement MeasureTableList(const RemotePlan& plan);
// 7b: ColOpen of `table` and ColFetchNext with ColGetName and ColDataType of every column.
Measurement MeasureColumnWalk(const RemotePlan& plan, const std::wstring& table);

}  // namespace zel::bench

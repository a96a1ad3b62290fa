/* A Windows ODBC client with nothing of ours in it: it connects with SQLDriverConnectW, makes a
 * table, fills it, reads it back column by column with SQLGetData (SQL_C_SLONG, SQL_C_WCHAR,
 * SQL_C_DOUBLE) and drops it. Under Wine its calls go through Wine's odbc32 to the machine's
 * unixODBC and a Linux driver; odbc-wine-smoke.sh checks what it prints.
 *
 *   ZelOdbcProbe.exe CONNECTION-STRING TABLE
 *
 * Output (UTF-8, one item a line):
 *   connected: DBMS <name> <version>
 *   row: id=<n> name=[<text>] chars=<n> price=<%.4f>     NULL shows as NULL
 *   rows: <n>
 *   done
 * Any failing call prints "failed: <call>" and the diagnostic records, and the exit code is 1.
 * Only the W functions and the unsuffixed ones are called: Wine's odbc32 aborts the process in
 * most of the A functions. */
#include <windows.h>
#include <sql.h>
#include <sqlext.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

static void print_utf8(const WCHAR *text, int length)
{
    char buffer[1024];
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text, length, buffer, (int)sizeof buffer, NULL, NULL);
    if (bytes > 0)
        fwrite(buffer, 1, (size_t)bytes, stdout);
}

static void print_diagnostics(SQLSMALLINT type, SQLHANDLE handle)
{
    SQLWCHAR state[6];
    SQLWCHAR message[1024];
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    SQLSMALLINT record;
    for (record = 1; record < 20; ++record) {
        SQLRETURN rc = SQLGetDiagRecW(type, handle, record, state, &native, message,
                                      (SQLSMALLINT)(sizeof message / sizeof message[0]), &length);
        if (!SQL_SUCCEEDED(rc))
            break;
        printf("  diag %d: SQLSTATE ", record);
        print_utf8((const WCHAR *)state, 5);
        printf(" native %ld: ", (long)native);
        print_utf8((const WCHAR *)message, (int)wcslen((const WCHAR *)message));
        printf("\n");
    }
}

static void check(SQLRETURN rc, const char *call, SQLSMALLINT type, SQLHANDLE handle)
{
    if (SQL_SUCCEEDED(rc))
        return;
    printf("failed: %s (SQLRETURN %d)\n", call, (int)rc);
    if (handle != SQL_NULL_HANDLE)
        print_diagnostics(type, handle);
    fflush(stdout);
    exit(1);
}

static void execute(SQLHDBC dbc, const WCHAR *sql)
{
    SQLHSTMT stmt = SQL_NULL_HSTMT;
    check(SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt), "SQLAllocHandle(STMT)", SQL_HANDLE_DBC, dbc);
    SQLRETURN rc = SQLExecDirectW(stmt, (SQLWCHAR *)sql, SQL_NTS);
    if (!SQL_SUCCEEDED(rc) && rc != SQL_NO_DATA) {
        printf("statement: ");
        print_utf8(sql, (int)wcslen(sql));
        printf("\n");
        check(rc, "SQLExecDirectW", SQL_HANDLE_STMT, stmt);
    }
    SQLFreeHandle(SQL_HANDLE_STMT, stmt);
}

static void print_info(SQLHDBC dbc, SQLUSMALLINT item)
{
    SQLWCHAR text[256];
    SQLSMALLINT bytes = 0;
    check(SQLGetInfoW(dbc, item, text, (SQLSMALLINT)sizeof text, &bytes), "SQLGetInfoW", SQL_HANDLE_DBC, dbc);
    print_utf8((const WCHAR *)text, bytes / (int)sizeof(SQLWCHAR));
}

int wmain(int argc, wchar_t **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: ZelOdbcProbe CONNECTION-STRING TABLE\n");
        return 2;
    }
    const wchar_t *connection = argv[1];
    const wchar_t *table = argv[2];

    SQLHENV env = SQL_NULL_HENV;
    SQLHDBC dbc = SQL_NULL_HDBC;
    check(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env), "SQLAllocHandle(ENV)", 0, SQL_NULL_HANDLE);
    check(SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, (SQLPOINTER)SQL_OV_ODBC3, 0), "SQLSetEnvAttr", SQL_HANDLE_ENV, env);
    check(SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc), "SQLAllocHandle(DBC)", SQL_HANDLE_ENV, env);

    SQLWCHAR completed[1024];
    SQLSMALLINT completedLength = 0;
    check(SQLDriverConnectW(dbc, NULL, (SQLWCHAR *)connection, SQL_NTS, completed,
                            (SQLSMALLINT)(sizeof completed / sizeof completed[0]), &completedLength,
                            SQL_DRIVER_NOPROMPT),
          "SQLDriverConnectW", SQL_HANDLE_DBC, dbc);
    printf("connected: DBMS ");
    print_info(dbc, SQL_DBMS_NAME);
    printf(" ");
    print_info(dbc, SQL_DBMS_VER);
    printf("\n");

    wchar_t sql[512];
    swprintf(sql, 512, L"DROP TABLE IF EXISTS %ls", table);
    execute(dbc, sql);
    swprintf(sql, 512, L"CREATE TABLE %ls (id INTEGER, name VARCHAR(40), price DOUBLE PRECISION)", table);
    execute(dbc, sql);
    /* Text beyond Latin-1 (the euro sign, U+20AC) shows that wide text arrives unchanged. */
    swprintf(sql, 512,
             L"INSERT INTO %ls (id, name, price) VALUES (1, 'alpha', 2.5), (2, 'Gr\u00f6\u00dfe \u20ac', -0.125), "
             L"(3, NULL, NULL), (40000, 'last', 1234567.875)",
             table);
    execute(dbc, sql);

    SQLHSTMT stmt = SQL_NULL_HSTMT;
    check(SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt), "SQLAllocHandle(STMT)", SQL_HANDLE_DBC, dbc);
    swprintf(sql, 512, L"SELECT id, name, price FROM %ls ORDER BY id", table);
    check(SQLExecDirectW(stmt, (SQLWCHAR *)sql, SQL_NTS), "SQLExecDirectW(SELECT)", SQL_HANDLE_STMT, stmt);
    int rows = 0;
    for (;;) {
        SQLRETURN rc = SQLFetch(stmt);
        if (rc == SQL_NO_DATA)
            break;
        check(rc, "SQLFetch", SQL_HANDLE_STMT, stmt);
        ++rows;

        SQLINTEGER id = 0;
        SQLLEN idIndicator = 0;
        check(SQLGetData(stmt, 1, SQL_C_SLONG, &id, sizeof id, &idIndicator), "SQLGetData(SLONG)", SQL_HANDLE_STMT, stmt);
        SQLWCHAR name[64];
        SQLLEN nameIndicator = 0;
        check(SQLGetData(stmt, 2, SQL_C_WCHAR, name, sizeof name, &nameIndicator), "SQLGetData(WCHAR)", SQL_HANDLE_STMT, stmt);
        double price = 0;
        SQLLEN priceIndicator = 0;
        check(SQLGetData(stmt, 3, SQL_C_DOUBLE, &price, sizeof price, &priceIndicator), "SQLGetData(DOUBLE)", SQL_HANDLE_STMT, stmt);

        if (idIndicator == SQL_NULL_DATA)
            printf("row: id=NULL");
        else
            printf("row: id=%ld", (long)id);
        if (nameIndicator == SQL_NULL_DATA) {
            printf(" name=NULL");
        } else {
            int chars = (int)(nameIndicator / (SQLLEN)sizeof(SQLWCHAR));
            printf(" name=[");
            print_utf8((const WCHAR *)name, chars);
            printf("] chars=%d", chars);
        }
        if (priceIndicator == SQL_NULL_DATA)
            printf(" price=NULL\n");
        else
            printf(" price=%.4f\n", price);
    }
    SQLFreeHandle(SQL_HANDLE_STMT, stmt);
    printf("rows: %d\n", rows);

    swprintf(sql, 512, L"DROP TABLE %ls", table);
    execute(dbc, sql);
    check(SQLDisconnect(dbc), "SQLDisconnect", SQL_HANDLE_DBC, dbc);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    SQLFreeHandle(SQL_HANDLE_ENV, env);
    printf("done\n");
    return 0;
}

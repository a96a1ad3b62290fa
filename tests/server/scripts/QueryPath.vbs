' A script client runs the query path through the server on the embedded provider: open a
' new database file, create and fill a table, read the query-result document, rows, fields
' and a blob (a SAFEARRAY of bytes), and the error out-parameters of a failing statement.
' Prints one line per check, "ok: QueryPath" at the end, and exits with 1 on any failure.
Option Explicit
' The build puts ScriptChecks.vbs (Check, NewDatabaseFile, Finish) here, before this script's
' own statements.
On Error Resume Next

' Every check below must run: a call that fails under On Error Resume Next skips its line.
Const kExpectedChecks = 26

Dim path
path = NewDatabaseFile()
Check Err.Number = 0 And fso.FileExists(path), "an empty file for the database: " & path

Dim db
Set db = CreateObject("ZelPmDb32.ZelOleDbImpl.1")
Check Err.Number = 0, "CreateObject ZelPmDb32.ZelOleDbImpl.1 (error " & Hex(Err.Number) & ")"
If Err.Number <> 0 Then WScript.Quit 1

Dim errText, errStmt
errText = "stale"
Err.Clear
db.ConOpenFromInitializationString "Provider=ZelLite.OLEDB.1;Data Source=" & path, False, errText, errStmt
Check Err.Number = 0, "ConOpenFromInitializationString (error " & Hex(Err.Number) & ": " & errText & ")"
Check VarType(errText) = vbString And errText = "", "errText is an empty string"
Check db.ConIsConnected() = True, "connected"
Dim source
db.ConGetDatasource source
Check VarType(source) = vbString And InStr(1, source, fso.GetFileName(path), vbTextCompare) > 0, _
      "ConGetDatasource names the file (" & source & ")"

' Runs one statement on a new command; the out-parameters go through to the caller's variables.
Function Execute(sql, result, xml, errorText, errorStmt)
    Dim handle : handle = 0
    db.CmdSetConnection handle
    db.CmdSetCommandText handle, sql
    db.CmdExecute handle, result, xml, errorText, errorStmt
    Execute = handle
End Function

Dim h, result, xml, statement
Dim statements : statements = Array( _
    "CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40), data BLOB)", _
    "INSERT INTO parts VALUES (1, 'bolt', X'00FF10')", _
    "INSERT INTO parts VALUES (2, 'nut', NULL)")
For Each statement In statements
    Err.Clear
    h = Execute(statement, result, xml, errText, errStmt)
    Check Err.Number = 0 And result = 1, statement & " (" & errText & ")"
    db.CmdDestroy h
Next

Err.Clear
h = Execute("SELECT id, name, data FROM parts ORDER BY id", result, xml, errText, errStmt)
Check Err.Number = 0 And VarType(result) = vbInteger And result = 1, "SELECT succeeds (" & errText & ")"
Check VarType(xml) = vbString And InStr(xml, "bolt") > 0 And InStr(xml, "nut") > 0, "the document holds both rows"
Check db.CmdFetchNext(h) = 0, "after the document the command stands at the end"
Check db.CmdFetchFirst(h) = 1, "CmdFetchFirst makes row 1 current"
Check db.CmdFieldAsLong(h, 1) = 1, "id of row 1"
Check db.CmdFieldAsString(h, 2) = "bolt", "name of row 1"
Check db.CmdFieldAsVariant(h, "name") = "bolt", "the field by name"
Err.Clear
Dim value : value = db.CmdFieldAsVariant(h, 2)
Check Err.Number = 5, "a literal (VT_I2) position is refused as an invalid argument (error " & Err.Number & ")"
Err.Clear
Dim blob : blob = db.CmdGetBlobData(h, 3)
Check Err.Number = 0 And VarType(blob) = vbArray + vbByte And IsArray(blob), _
      "CmdGetBlobData gives a byte array (VarType " & VarType(blob) & ")"
Check db.CmdFetchNext(h) = 1 And db.CmdIsNull(h, 3) = 1, "row 2 has no blob"
Check db.CmdFetchNext(h) = 0, "no row after row 2"
Err.Clear
db.CmdDestroy h
Check Err.Number = 0, "CmdDestroy"
Err.Clear
result = db.CmdFetchNext(h)
Check Err.Number = &H80004005, "a destroyed handle is unknown (error " & Hex(Err.Number) & ")"

' A failing statement: S_OK, result 2 and the error in the out-parameters.
Err.Clear
xml = Empty
h = Execute("SELEKT nothing", result, xml, errText, errStmt)
Check Err.Number = 0 And result = 2, "an invalid statement answers 2"
Check Len(errText) > 0, "errText: " & errText
Check errStmt = "SELEKT nothing", "errStmt is the statement"
db.CmdDestroy h

db.ConClose
Check db.ConIsConnected() = False, "closed"
Set db = Nothing
WScript.Sleep 200
fso.DeleteFile path
Err.Clear

Finish "QueryPath", kExpectedChecks

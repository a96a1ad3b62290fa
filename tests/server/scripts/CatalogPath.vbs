' A script client browses the catalog through the server: the table list comes back as a
' SAFEARRAY of strings (the script checks its type: Wine's VBScript cannot index it), the
' table enumeration row by row, and a table definition document. Prints one line per check,
' "ok: CatalogPath" at the end, and exits with 1 on any failure.
Option Explicit
' The build puts ScriptChecks.vbs (Check, NewDatabaseFile, Finish) here, before this script's
' own statements.
On Error Resume Next

' Every check below must run: a call that fails under On Error Resume Next skips its line.
Const kExpectedChecks = 10

Dim path
path = NewDatabaseFile()

Dim db, errText, errStmt
Set db = CreateObject("ZelPmDb32.ZelOleDbImpl.1")
Check Err.Number = 0, "CreateObject ZelPmDb32.ZelOleDbImpl.1 (error " & Hex(Err.Number) & ")"
If Err.Number <> 0 Then WScript.Quit 1
db.ConOpenFromInitializationString "Provider=ZelLite.OLEDB.1;Data Source=" & path, False, errText, errStmt
Check Err.Number = 0, "open (" & errText & ")"

Dim c, result, xml
c = 0
db.CmdSetConnection c
db.CmdSetCommandText c, "CREATE TABLE parts (id INTEGER PRIMARY KEY, name VARCHAR(40))"
db.CmdExecute c, result, xml, errText, errStmt
Check Err.Number = 0 And result = 1, "CREATE TABLE parts"
db.CmdDestroy c

Dim t : t = 0
Err.Clear
db.TblOpen t, "", "", "", "TABLE", errText, errStmt
Check Err.Number = 0 And t <> 0, "TblOpen gives a handle (" & errText & ")"
Check db.TblFetchNext(t) = True, "one table"
Check db.TblGetName(t) = "parts", "its name"
Dim list : list = db.TblGetTableList(t)
Check Err.Number = 0 And VarType(list) = vbArray + vbString And IsArray(list), _
      "TblGetTableList gives an array of strings (VarType " & VarType(list) & ")"
Check db.TblFetchNext(t) = False, "the list leaves the enumeration at its end"
db.TblDestroy t

Dim def : def = db.TblGetDef("parts")
Check Err.Number = 0 And InStr(def, "TableDef") > 0, "TblGetDef gives the document"
db.ConClose
Set db = Nothing
WScript.Sleep 200
fso.DeleteFile path
Err.Clear
Check Not fso.FileExists(path), "the server let go of the database file"

Finish "CatalogPath", kExpectedChecks

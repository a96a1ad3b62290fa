' Late-bound calls of a script client into the server, with no database: objects by ProgID,
' return values, out-parameters and [in,out] handles passed by reference, and the error
' codes of the server's dispatcher as the script engine reports them. Prints one line per
' check, "ok: DispatchRules" at the end, and exits with 1 on any failure.
Option Explicit
' The build puts ScriptChecks.vbs (Check, NewDatabaseFile, Finish) here, before this script's
' own statements.
On Error Resume Next

' Every check below must run: a call that fails under On Error Resume Next skips its line.
Const kExpectedChecks = 20

Dim db, helper
Set db = CreateObject("ZelPmDb32.ZelOleDbImpl.1")
Check Err.Number = 0, "CreateObject ZelPmDb32.ZelOleDbImpl.1 (error " & Hex(Err.Number) & ")"
If Err.Number <> 0 Then WScript.Quit 1
Err.Clear
Set helper = CreateObject("ZelPmDb32.ZelOleDbHelperImpl.1")
Check Err.Number = 0, "CreateObject ZelPmDb32.ZelOleDbHelperImpl.1 (error " & Hex(Err.Number) & ")"
If Err.Number <> 0 Then WScript.Quit 1

' A retval comes back with its declared type.
Err.Clear
Dim connected : connected = db.ConIsConnected()
Check Err.Number = 0 And VarType(connected) = vbBoolean And connected = False, "ConIsConnected is a Boolean False"

' An [in,out] handle: a variable goes in by reference and brings the new handle back.
Dim h : h = 0
Err.Clear
db.CmdSetConnection h
Check Err.Number = 0 And VarType(h) = vbLong And h <> 0, "CmdSetConnection gives a handle (" & h & ")"
Dim first : first = h
' Let the millisecond counter move on, so a new handle could not equal the old one.
Dim started : started = Timer
Do While Timer - started < 0.1 And Timer >= started
Loop
Err.Clear
db.CmdSetConnection h
Check Err.Number = 0 And h = first, "the handle passed back names the same command (" & h & ", error " & Hex(Err.Number) & ")"
Dim other : other = first + 12345
Err.Clear
db.CmdSetConnection other
Check Err.Number = 0 And other <> first + 12345, "an unknown handle is replaced (" & other & ", error " & Hex(Err.Number) & ")"

' Text in a handle: a number converts, anything else is a type mismatch.
Err.Clear
Dim moved : moved = db.CmdFetchNext("abc")
Check Err.Number = 13, "CmdFetchNext ""abc"" is a type mismatch (error " & Err.Number & ")"
Err.Clear
db.CmdDestroy CStr(first)
Check Err.Number = 0, "CmdDestroy of the handle as text (error " & Hex(Err.Number) & ")"
Err.Clear
db.CmdDestroy first
Check Err.Number = &H80004005, "a second CmdDestroy fails with E_FAIL (error " & Hex(Err.Number) & ")"
Err.Clear
db.CmdDestroy other
Check Err.Number = 0, "CmdDestroy of the replaced handle"

' A wrong argument count and an unknown name.
Err.Clear
db.CmdDestroy h, 1
Check Err.Number = 450, "two arguments to CmdDestroy: wrong number of arguments (error " & Err.Number & ")"
Err.Clear
connected = db.ConIsConnected(1)
Check Err.Number = 450, "an argument to ConIsConnected: wrong number of arguments (error " & Err.Number & ")"
Err.Clear
db.CmdNoSuchMethod h
Check Err.Number = 438, "an unknown method name (error " & Err.Number & ")"

' The helper: out-parameters by reference come back with their declared types.
Dim connStr, connFlags, known
connStr = 5
connFlags = "x"
Err.Clear
known = helper.GetDbConnectionInfo(connStr, connFlags, 99, Empty, Empty)
Check Err.Number = 0 And VarType(known) = vbBoolean And known = False, "format 99 is unknown (error " & Hex(Err.Number) & ")"
Check VarType(connStr) = vbString And connStr = "", "connStr is an empty string (VarType " & VarType(connStr) & ")"
Check VarType(connFlags) = vbLong, "connFlags is a Long (VarType " & VarType(connFlags) & ")"
Err.Clear
known = helper.GetDbConnectionInfo(connStr, connFlags, 0, "user", "secret")
Check Err.Number = 0 And VarType(known) = vbBoolean, "format 0 answers a Boolean (" & known & ")"
If known Then
    Check connStr = "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=%1!s!" And connFlags = 2, "the Access template"
Else
    Check VarType(connStr) = vbString And connStr = "", "no Jet engine in the prefix: no template"
End If
Err.Clear
known = helper.GetDbConnectionInfo(connStr, connFlags, "abc", Empty, Empty)
Check Err.Number = 13, "formatType ""abc"" is a type mismatch (error " & Err.Number & ")"
Err.Clear
known = helper.GetDbConnectionInfo(connStr, connFlags, 0)
Check Err.Number = 450, "three arguments to the helper: wrong number of arguments (error " & Err.Number & ")"

Set db = Nothing
Set helper = Nothing
Finish "DispatchRules", kExpectedChecks

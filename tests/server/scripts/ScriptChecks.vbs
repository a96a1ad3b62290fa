' What the script clients share: Check prints and counts one check, NewDatabaseFile makes an
' empty database file, and Finish ends the script, printing "ok: NAME" and exiting with 0 only
' when every expected check ran and passed. The build copies it into each script, after its
' Option Explicit (Wine's VBScript has no ExecuteGlobal to load it at run time).
Dim failures : failures = 0
Dim checks : checks = 0
Dim fso : Set fso = CreateObject("Scripting.FileSystemObject")

Sub Check(passed, what)
    checks = checks + 1
    If passed Then
        WScript.Echo "pass: " & what
    Else
        WScript.Echo "FAIL: " & what
        failures = failures + 1
    End If
End Sub

' A new empty file in the temporary folder (an empty file is an empty database); its path.
Function NewDatabaseFile()
    Dim file
    file = fso.GetSpecialFolder(2) & "\" & fso.GetTempName()
    fso.CreateTextFile(file).Close
    NewDatabaseFile = file
End Function

Sub Finish(name, expectedChecks)
    If checks <> expectedChecks Then
        WScript.Echo "FAIL: " & checks & " of " & expectedChecks & " checks ran"
        failures = failures + 1
    End If
    If failures > 0 Then
        WScript.Echo failures & " check(s) failed"
        WScript.Quit 1
    End If
    WScript.Echo "ok: " & name
    WScript.Quit 0
End Sub

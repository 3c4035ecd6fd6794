Option Explicit

' Plays the macro's platform for TessaronExchange, and runs what the file SCENARIO says: one step a
' line, its parts separated by tabs. Texts are written as their UTF-16 units in hexadecimal, lists
' with commas between texts. OUTCOME gets one line for each step, lists with their length in front.

Sub Main
    Dim steps As Integer, line As String
    steps = FreeFile
    Open Environ("SCENARIO") For Input As #steps
    Do While Not EOF(steps)
        Line Input #steps, line
        Report Outcome(Split(line, Chr(9)))
    Loop
    Close #steps
    StarDesktop.terminate
End Sub

Function Outcome(parts As Variant) As String
    On Error GoTo Failed
    Select Case parts(0)
        Case "write": WriteText parts(1), JoinList(FromHexList(parts(2)))
        Case "read": Outcome = HexList(SplitList(ReadText(parts(1))))
        Case "check": CheckStatus parts(1)
        Case "wait": WaitForAnswer parts(1), parts(1) & "/running", CLng(parts(2))
        Case "seconds": Outcome = CStr(SecondsFor(parts(1)))
        Case "run": Outcome = HexList(RunCommand(parts(1), parts(2), FromHexList(parts(3))))
        Case Else: Err.Raise 1, "", "no such step"
    End Select
    Outcome = "ok " & Outcome
    Exit Function
Failed:
    Outcome = "error " & Err.Number & " " & Err.Description
End Function

Sub Report(text As String)
    Dim handle As Integer
    handle = FreeFile
    Open Environ("OUTCOME") For Append As #handle
    Print #handle, text
    Close #handle
End Sub

Function StartBridge(commandName As String, folder As String) As String
    StartBridge = folder & "/running"
    Shell Environ("START_BRIDGE"), 0, commandName & " " & folder, True
End Function

Function BridgeRuns(processId As String) As Boolean
    BridgeRuns = Dir(processId) <> ""
End Function

Sub Pause
    Wait 50
End Sub

Function HexList(texts As Variant) As String
    Dim i As Long
    HexList = CStr(UBound(texts) - LBound(texts) + 1) & ":"
    For i = LBound(texts) To UBound(texts)
        If i > LBound(texts) Then HexList = HexList & ","
        HexList = HexList & HexText(CStr(texts(i)))
    Next i
End Function

Function HexText(text As String) As String
    Dim i As Long
    For i = 1 To Len(text)
        If i > 1 Then HexText = HexText & " "
        HexText = HexText & LCase(Right("000" & Hex(AscW(Mid(text, i, 1))), 4))
    Next i
End Function

Function FromHexList(codes As String) As Variant
    Dim texts() As String, i As Long
    If InStr(codes, ",") = 0 Then
        FromHexList = Array(FromHex(codes))
        Exit Function
    End If
    texts = Split(codes, ",")
    For i = LBound(texts) To UBound(texts)
        texts(i) = FromHex(texts(i))
    Next i
    FromHexList = texts
End Function

Function FromHex(codes As String) As String
    Dim unit As Variant
    If codes = "" Then Exit Function
    For Each unit In Split(codes, " ")
        FromHex = FromHex & ChrW(CLng("&H" & unit))
    Next unit
End Function

Option Explicit

' The platform for the example's modules, and the runner of the tests. Waits for the file SCENARIO,
' runs its steps and writes the file OUTCOME, until a step is "quit". A step is a line with parts
' separated by tabs. Its outcome is a line, too. Texts are UTF-16 code units in hexadecimal. The texts
' of a list are separated by commas; in an outcome, the number of texts comes first.

Private messages As String
Private currentCommand As String
Private callProgram As String
Private temporaryFolder As String
Private ended As Boolean

' Also ends after five minutes without a scenario, because a killed test cannot send "quit".
Sub Main
    Dim idle As Long
    Do Until ended Or idle = 30000
        idle = idle + 1
        If FileExists(Environ("SCENARIO")) Then
            RunScenario Environ("SCENARIO"), Environ("OUTCOME")
            idle = 0
        End If
        Wait 10
    Loop
    StarDesktop.terminate
End Sub

Sub RunScenario(scenario As String, outcomes As String)
    Dim steps As Integer, results As Integer, line As String
    steps = FreeFile
    Open scenario For Input As #steps
    results = FreeFile
    Open outcomes & "-new" For Output As #results
    Do While Not EOF(steps)
        Line Input #steps, line
        ' Outcome() opens files too, so it must not run inside the Print statement.
        line = Outcome(Split(line, Chr(9)))
        Print #results, line
    Loop
    Close #steps
    Close #results
    Kill scenario
    Name outcomes & "-new" As outcomes
End Sub

Function Outcome(parts As Variant) As String
    Dim result As String
    On Error GoTo Failed
    result = StepOfExchange(parts)
    If result = "no such step" Then result = StepOfDocument(parts)
    Outcome = "ok " & result
    Exit Function
Failed:
    Outcome = "error " & Err.Number & " " & Err.Description
End Function

Function StepOfExchange(parts As Variant) As String
    Select Case parts(0)
        Case "quit": ended = True
        Case "use"
            callProgram = parts(1)
            temporaryFolder = parts(2)
        Case "write": TessaronWriteText parts(1), TessaronJoinList(FromHexList(parts(2)))
        Case "read": StepOfExchange = HexList(TessaronSplitList(TessaronReadText(parts(1))))
        Case "check": TessaronCheckStatus parts(1)
        Case "wait": TessaronWaitForAnswer parts(1), parts(2), CLng(parts(3))
        Case "pause": StepOfExchange = CStr(TessaronPauseAfter(CLng(parts(1))))
        Case "seconds": StepOfExchange = CStr(TessaronSecondsFor(parts(1)))
        Case "run": StepOfExchange = HexList(TessaronRunCommand(parts(1), FromHexList(parts(2))))
        Case "cancel": TessaronRequestCancel parts(1) = "true"
        Case "trace": StepOfExchange = TessaronSetTrace(parts(1))
        Case Else: StepOfExchange = "no such step"
    End Select
End Function

Function StepOfDocument(parts As Variant) As String
    Select Case parts(0)
        Case "load": LoadDocument TessaronReadText(parts(1))
        Case "save": TessaronWriteText parts(1), SavedDocument()
        Case "select": SelectPieces CLng(parts(1)), CLng(parts(2)), CLng(parts(3)), CLng(parts(4))
        Case "prepare": PrepareDocument parts(1), parts(2)
        Case "put": PutFile parts(1), parts(2), False
        Case "append": PutFile parts(1), parts(2), True
        Case "do"
            messages = ""
            TessaronDo parts(1)
            StepOfDocument = HexText(messages)
        Case "switch trace"
            messages = ""
            TessaronSwitchTrace
            StepOfDocument = HexText(messages)
        Case "cancel macro"
            messages = ""
            TessaronCancelMacro
            StepOfDocument = HexText(messages)
        Case "runs": StepOfDocument = HexText(WrittenRuns(TessaronRunsOfMarkup(FromHex(parts(1)))))
        Case "word runs": StepOfDocument = HexText(WrittenRuns(TessaronWordRuns(FromHex(parts(1)), _
            Chr(13))))
        Case "markup": StepOfDocument = HexText(TessaronMarkupOfRuns(TessaronRunsOfMarkup(FromHex(parts(1)))))
        Case "same": StepOfDocument = CStr(TessaronSameText(FromHex(parts(1)), FromHex(parts(2))))
        Case "member": StepOfDocument = HexText(TessaronJsonMember(FromHex(parts(1)), _
            FromHex(parts(2))))
        Case "text": StepOfDocument = HexText(TessaronJsonText(FromHex(parts(1))))
        Case "citation": StepOfDocument = CStr(TessaronHoldsCitation(FromHex(parts(1))))
        Case "word code": StepOfDocument = HexText(TessaronWordCode(FromHex(parts(1))))
        Case Else: Err.Raise 1, "", "no such step"
    End Select
End Function

Sub PutFile(path As String, line As String, atEnd As Boolean)
    Dim handle As Integer
    handle = FreeFile
    If atEnd Then Open path For Append As #handle Else Open path For Output As #handle
    Print #handle, line
    Close #handle
End Sub

Sub Message(text As String)
    If messages <> "" Then messages = messages & Chr(10)
    messages = messages & text
End Sub

' The platform that TessaronExchange needs

' `callProgram` runs TessaronBridge.sh with the text of the first file as its argument
' and its output in the second file.
Function TessaronCallScript(request As String) As String
    Dim handle As Integer, path As String, printed As String
    If Left(request, 6) = "start" & Chr(10) Then currentCommand = Split(request, Chr(10))(1)
    path = Environ("SCENARIO") & "-call"
    handle = FreeFile
    Open path For Output As #handle
    Print #handle, request
    Close #handle
    Shell callProgram, 0, path & " " & path & "-output", True
    handle = FreeFile
    Open path & "-output" For Input As #handle
    If Not EOF(handle) Then Line Input #handle, printed
    Close #handle
    TessaronCallScript = printed
End Function

Sub TessaronPause(milliseconds As Long)
    DuringWait currentCommand
    Wait milliseconds
End Sub

Function TessaronTemporaryFolder() As String
    TessaronTemporaryFolder = temporaryFolder
End Function

' Texts as hexadecimal code units

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

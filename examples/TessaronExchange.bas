Attribute VB_Name = "TessaronExchange"
Option Explicit
Option Private Module

' Layer 1 of 3: one command through the bridge. Writes the argument file, starts the bridge, waits,
' checks the status and reads the results.
'
' This module does not use Word's object model. Another module (TessaronWord for Word on macOS) must
' have these procedures:
'   TessaronCallScript(request) As String  runs TessaronBridge.sh with the request and returns its
'                                          output
'   TessaronPause(milliseconds)            waits, while the user can go on working
'   TessaronTemporaryFolder() As String    the folder for the runs' folders, without a slash at the end

' The number of every error that the example raises. The description is a message for the user.
Public Const TessaronFailed As Long = 20001

Private Const ArgumentFile As String = "/mac-word-plugin-args.txt"
Private Const ResultFile As String = "/mac-word-plugin-results.txt"
Private Const ReadyFile As String = "/mac-word-plugin-result-ready.txt"

Private Const NormalSeconds As Long = 30

Private runNumber As Long
Private cancelRequested As Boolean
Private traceMode As String

' Runs one command and returns its results as an array of texts, counted from 0. Raises
' TessaronFailed if the bridge did not answer. If the bridge answered, only the results show
' whether the command itself succeeded.
Public Function TessaronRunCommand(commandName As String, arguments As Variant) As Variant
    Dim folder As String, processId As String, message As String
    folder = NewFolder()
    On Error GoTo Failed
    TessaronWriteText folder & ArgumentFile, TessaronJoinList(arguments)
    processId = CallScript("start" & vbLf & commandName & vbLf & folder & vbLf & traceMode)
    TessaronWaitForAnswer folder, processId, TessaronSecondsFor(commandName)
    TessaronCheckStatus folder
    TessaronRunCommand = TessaronSplitList(TessaronReadText(folder & ResultFile))
    RemoveFolder folder
    Exit Function
Failed:
    message = Err.Description
    Resume CleanUp ' an error raised inside an error handler could not be handled
CleanUp:
    On Error GoTo 0
    RemoveFolder folder
    Err.Raise TessaronFailed, "TessaronExchange", message
End Function

' The time limit of a command in seconds. 0 means no limit, because the command can open a dialog.
Public Function TessaronSecondsFor(commandName As String) As Long
    Select Case commandName
        Case "getFieldCodeFromCitationEditor", "getCitationStyleFromDialog", _
             "formatCitationsAndBibliography", "checkManualFormatAndGetFieldCode"
            TessaronSecondsFor = 0
        Case "launchTessaron"
            ' macOS may wait for the application before the bridge does.
            TessaronSecondsFor = 120
        Case Else
            TessaronSecondsFor = NormalSeconds
    End Select
End Function

' Returns when the ready file exists. Raises TessaronFailed if the bridge ended without it, if
' the user cancelled, or after `seconds` (0: no limit). The last two end the bridge.
Public Sub TessaronWaitForAnswer(folder As String, processId As String, seconds As Long)
    Dim waited As Long, lastCheck As Long, interval As Long
    Do Until FileExists(folder & ReadyFile)
        If cancelRequested Then
            StopBridge folder, processId
            Fail "Cancelled. If a dialog of Tessaron is still open, its answer will be ignored."
        End If
        If seconds > 0 And waited >= seconds * 1000 Then
            StopBridge folder, processId
            Fail "Tessaron did not answer within " & seconds & " seconds."
        End If
        ' Checking for a file is cheap; checking for a process is not.
        If waited - lastCheck >= 1000 Then
            lastCheck = waited
            If Not BridgeRuns(folder, processId) Then
                ' The bridge may have written its answer after the last check.
                If FileExists(folder & ReadyFile) Then Exit Sub
                Fail "The connection to Tessaron ended without an answer."
            End If
        End If
        interval = TessaronPauseAfter(waited)
        TessaronPause interval
        waited = waited + interval
    Loop
End Sub

' The pause before the next check for the answer, in milliseconds. It grows with the wait so far.
Public Function TessaronPauseAfter(waited As Long) As Long
    TessaronPauseAfter = waited \ 10
    If TessaronPauseAfter < 50 Then TessaronPauseAfter = 50
    If TessaronPauseAfter > 2000 Then TessaronPauseAfter = 2000
End Function

' True ends the current wait: the user can run the macro TessaronCancel during a wait. False resets.
Public Sub TessaronRequestCancel(requested As Boolean)
    cancelRequested = requested
End Sub

' Switches the trace of the requests: "" (off), "requests" or "bodies". Returns the trace file.
Public Function TessaronSetTrace(mode As String) As String
    TessaronSetTrace = CallScript("trace-file")
    traceMode = mode
End Function

Public Function TessaronTraceMode() As String
    TessaronTraceMode = traceMode
End Function

' Raises TessaronFailed unless the results file exists and is as long as the ready file says.
Public Sub TessaronCheckStatus(folder As String)
    Dim status As String
    status = TessaronReadText(folder & ReadyFile)
    If status = "-1" Then Fail "The answer of Tessaron could not be written. Is the disk full?"
    If Not FileExists(folder & ResultFile) Then Fail "The answer of Tessaron is missing."
    If status <> CStr(FileLen(folder & ResultFile)) Then
        Fail "The answer of Tessaron is incomplete."
    End If
End Sub

' A list is its texts separated by U+0001, so no text may contain that character.
Public Function TessaronJoinList(texts As Variant) As String
    Dim i As Long
    For i = LBound(texts) To UBound(texts)
        If InStr(texts(i), ChrW(1)) > 0 Then
            Fail "A text contains the character U+0001, which cannot be passed on."
        End If
    Next i
    TessaronJoinList = Join(texts, ChrW(1))
End Function

Public Function TessaronSplitList(text As String) As Variant
    If text = "" Then
        TessaronSplitList = Array("") ' Split would return an array without elements
    Else
        TessaronSplitList = Split(text, ChrW(1))
    End If
End Function

' The files are UTF-16, little-endian, without a byte order mark: the bytes of a VBA string.
Public Sub TessaronWriteText(path As String, text As String)
    Dim bytes() As Byte, handle As Integer
    DeleteFile path ' Open does not truncate
    handle = FreeFile
    Open path For Binary Access Write As #handle
    If text <> "" Then
        bytes = text
        ' The bridge drops a U+FEFF at the start of a file. A second one is written, so that the
        ' text's own U+FEFF survives.
        If Left(text, 1) = ChrW(&HFEFF) Then bytes = ChrW(&HFEFF) & text
        Put #handle, , bytes
    End If
    Close #handle
End Sub

Public Function TessaronReadText(path As String) As String
    Dim bytes() As Byte, handle As Integer
    If FileLen(path) = 0 Then Exit Function
    ReDim bytes(FileLen(path) - 1)
    handle = FreeFile
    Open path For Binary Access Read As #handle
    Get #handle, , bytes
    Close #handle
    TessaronReadText = bytes
End Function

' Makes a folder for each run, so that a late answer to one run is never read by the next run.
Private Function NewFolder() As String
    Dim path As String
    Do
        runNumber = runNumber + 1
        path = TessaronTemporaryFolder() & "/tessaron-" & CLng(Date) & "-" & CLng(Timer * 100) & _
            "-" & runNumber
    Loop While FileExists(path)
    MkDir path
    NewFolder = path
End Function

' A folder that cannot be removed now is removed by TessaronBridge.sh after a day.
Private Sub RemoveFolder(folder As String)
    Dim file As Variant
    On Error Resume Next
    For Each file In Array(ArgumentFile, ResultFile, ReadyFile, "/bridge-process")
        DeleteFile folder & CStr(file)
    Next file
    RmDir folder
End Sub

Private Function BridgeRuns(folder As String, processId As String) As Boolean
    BridgeRuns = CallScript("running" & vbLf & processId & vbLf & folder) = "true"
End Function

Private Sub StopBridge(folder As String, processId As String)
    CallScript "end" & vbLf & processId & vbLf & folder
End Sub

Private Function CallScript(request As String) As String
    CallScript = TessaronCallScript(request)
    If Left(CallScript, 7) = "error: " Then Fail Mid(CallScript, 8)
End Function

' Dir(path) would be simpler, but it ends a listing that the caller has begun with Dir.
Private Function FileExists(path As String) As Boolean
    Dim attributes As Long
    attributes = -1
    On Error Resume Next
    attributes = GetAttr(path)
    FileExists = attributes >= 0
End Function

Private Sub DeleteFile(path As String)
    If FileExists(path) Then Kill path
End Sub

Private Sub Fail(message As String)
    Err.Raise TessaronFailed, "TessaronExchange", message
End Sub

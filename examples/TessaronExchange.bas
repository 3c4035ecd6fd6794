Attribute VB_Name = "TessaronExchange"
Option Explicit

' One command through the bridge: the argument file, the wait, the results.
'
' Nothing in this module needs Word. What depends on the platform stands in a module beside it,
' which must have these three (TessaronWord has them for Word on macOS):
'   StartBridge(commandName, folder) As String   starts the bridge and returns its process id
'   BridgeRuns(processId) As Boolean             whether that process is still there
'   Pause()                                      waits for some 50 milliseconds

Public Const BridgeFailed As Long = 20001

Private Const ArgumentFile As String = "/mac-word-plugin-args.txt"
Private Const ResultFile As String = "/mac-word-plugin-results.txt"
Private Const ReadyFile As String = "/mac-word-plugin-result-ready.txt"

' Runs one command in `folder` (without a slash at its end) and returns its results as an array of
' texts, counted from 0. Raises BridgeFailed, with a message for the user, when there are none.
' Whether the command itself succeeded is told by the results.
Public Function RunCommand(commandName As String, folder As String, arguments As Variant) As Variant
    ' Old files would look like the answer.
    DeleteFile folder & ReadyFile
    DeleteFile folder & ResultFile
    WriteText folder & ArgumentFile, JoinList(arguments)
    WaitForAnswer folder, StartBridge(commandName, folder), SecondsFor(commandName)
    CheckStatus folder
    RunCommand = SplitList(ReadText(folder & ResultFile))
End Function

' How long a command may take. 0: as long as it likes, because the user may have a dialog open.
Public Function SecondsFor(commandName As String) As Long
    Select Case commandName
        Case "getFieldCodeFromCitationEditor", "getCitationStyleFromDialog", _
             "formatCitationsAndBibliography", "checkManualFormatAndGetFieldCode"
            SecondsFor = 0
        Case Else
            SecondsFor = 30
    End Select
End Function

' Returns when the ready file is there. Raises BridgeFailed when the bridge ended without it, or
' after `seconds`, unless they are 0.
Public Sub WaitForAnswer(folder As String, processId As String, seconds As Long)
    Dim started As Date, running As Boolean, look As Integer
    started = Now
    running = True
    Do
        ' Looking for a file is cheap, asking for a process is not.
        For look = 1 To 20
            If FileExists(folder & ReadyFile) Then Exit Sub
            Pause
        Next look
        ' It had ended before those looks.
        If Not running Then Fail "The connection to Tessaron ended without an answer."
        If seconds > 0 And DateDiff("s", started, Now) >= seconds Then
            Fail "Tessaron did not answer within " & seconds & " seconds."
        End If
        running = BridgeRuns(processId)
    Loop
End Sub

' Raises BridgeFailed unless the results file is there and as long as the ready file says.
Public Sub CheckStatus(folder As String)
    Dim status As String
    status = ReadText(folder & ReadyFile)
    If status = "-1" Then Fail "The answer of Tessaron could not be written. Is the disk full?"
    If Not FileExists(folder & ResultFile) Then Fail "The answer of Tessaron is missing."
    If status <> CStr(FileLen(folder & ResultFile)) Then Fail "The answer of Tessaron is incomplete."
End Sub

' A list is its texts with U+0001 between them, so no text may hold that.
Public Function JoinList(texts As Variant) As String
    Dim i As Long
    For i = LBound(texts) To UBound(texts)
        If InStr(texts(i), ChrW(1)) > 0 Then
            Fail "A text holds the character U+0001, which cannot be passed on."
        End If
    Next i
    JoinList = Join(texts, ChrW(1))
End Function

Public Function SplitList(text As String) As Variant
    If text = "" Then
        SplitList = Array("") ' where Split gives an array of nothing
    Else
        SplitList = Split(text, ChrW(1))
    End If
End Function

' The files are UTF-16, little-endian, without a byte-order mark: the bytes of a VBA text.
Public Sub WriteText(path As String, text As String)
    Dim bytes() As Byte, handle As Integer
    DeleteFile path ' or the rest of a longer file would stay
    handle = FreeFile
    Open path For Binary Access Write As #handle
    If text <> "" Then
        bytes = text
        Put #handle, , bytes
    End If
    Close #handle
End Sub

Public Function ReadText(path As String) As String
    Dim bytes() As Byte, handle As Integer
    If FileLen(path) = 0 Then Exit Function
    ReDim bytes(FileLen(path) - 1)
    handle = FreeFile
    Open path For Binary Access Read As #handle
    Get #handle, , bytes
    Close #handle
    ReadText = bytes
End Function

Private Function FileExists(path As String) As Boolean
    FileExists = Dir(path) <> ""
End Function

Private Sub DeleteFile(path As String)
    If FileExists(path) Then Kill path
End Sub

Private Sub Fail(message As String)
    Err.Raise BridgeFailed, "TessaronExchange", message
End Sub

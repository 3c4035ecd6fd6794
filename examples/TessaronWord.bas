Attribute VB_Name = "TessaronWord"
Option Explicit

' ONLY WORD FOR MAC CAN RUN THIS MODULE. It has not been run by us; TessaronExchange has.
'
' Word's sandbox does not let a macro start a program. AppleScriptTask runs a script outside the
' sandbox: TessaronBridge.applescript says how to install it.

Private Declare PtrSafe Function usleep Lib "/usr/lib/libc.dylib" (ByVal microseconds As Long) As Long

Private Const Script As String = "TessaronBridge.scpt"

Private busy As Boolean
Private runNumber As Long

' Lets the user choose a citation and puts it at the insertion point. Its text comes with the next
' "formatCitationsAndBibliography", which needs all citations of the document.
Public Sub InsertCitation()
    Dim fieldCode As String, newField As Field, place As Range
    On Error GoTo Failed
    fieldCode = AskTessaron("getFieldCodeFromCitationEditor", Array(""))(0)
    If fieldCode = "" Then Exit Sub ' nothing chosen
    ' "null", for example, comes from an answer that was cut off; never let it into a document.
    If Left(fieldCode, 20) <> "ADDIN CSL_CITATION {" Then
        Err.Raise BridgeFailed, "TessaronWord", "The answer of Tessaron holds no citation."
    End If
    Set place = Selection.Range
    place.Collapse wdCollapseEnd ' a field put on selected text would replace it
    Set newField = ActiveDocument.Fields.Add(place, wdFieldAddin)
    newField.Code.Text = fieldCode
    newField.Result.Text = "[citation]"
    Exit Sub
Failed:
    MsgBox Err.Description, vbExclamation, "Tessaron"
End Sub

' Runs one command and returns its results, an array of texts. Raises BridgeFailed.
Public Function AskTessaron(commandName As String, arguments As Variant) As Variant
    Dim folder As String
    ' While a dialog is open, the user can still start another macro.
    If busy Then Err.Raise BridgeFailed, "TessaronWord", "Tessaron is waiting for an answer in its dialog."
    busy = True
    On Error GoTo Failed
    folder = NewFolder()
    AskTessaron = RunCommand(commandName, folder, arguments)
    busy = False
    RemoveFolder folder
    Exit Function
Failed:
    busy = False
    Err.Raise Err.Number, Err.Source, Err.Description
End Function

' A folder for each run: an answer that comes too late is not taken for the next one's. Word's own
' temporary folder is inside its container, where both Word and the bridge may write.
Private Function NewFolder() As String
    runNumber = runNumber + 1
    NewFolder = Environ("TMPDIR") & "tessaron-" & Format(Now, "yyyymmddhhnnss") & "-" & runNumber
    MkDir NewFolder
End Function

' After a success; of a run that failed, the bridge may still be writing.
Private Sub RemoveFolder(folder As String)
    On Error Resume Next ' a folder that stays harms nothing
    Kill folder & "/mac-word-plugin-args.txt"
    Kill folder & "/mac-word-plugin-results.txt"
    Kill folder & "/mac-word-plugin-result-ready.txt"
    RmDir folder
End Sub

Public Function StartBridge(commandName As String, folder As String) As String
    StartBridge = AppleScriptTask(Script, "startBridge", commandName & vbLf & folder)
End Function

Public Function BridgeRuns(processId As String) As Boolean
    BridgeRuns = AppleScriptTask(Script, "bridgeRuns", processId) = "true"
End Function

Public Sub Pause()
    DoEvents ' Word goes on drawing
    usleep 50000
End Sub

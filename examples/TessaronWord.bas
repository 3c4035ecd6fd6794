Attribute VB_Name = "TessaronWord"
Option Explicit
Option Private Module

' Layer 3 of 3: access to Word's object model and to macOS. Contains no logic.
'
' ONLY WORD FOR MAC CAN RUN THIS MODULE. It has not been run by us; the other layers have. README.md
' has a checklist for the first run. TessaronDocument and TessaronExchange have the contracts of the
' public procedures.

#If Mac Then
    Private Declare PtrSafe Function usleep Lib "/usr/lib/libc.dylib" (ByVal microseconds As Long) As Long
#End If

Private Const ScriptFile As String = "TessaronBridge.scpt"
Private Const ScriptHandler As String = "callBridge"
Private Const StyleVariable As String = "TessaronStyle"
Private Const MessageTitle As String = "Tessaron"

' Set before the first wait: during a wait the user can click elsewhere, and ActiveDocument and
' Selection change. A Range moves with its text.
Private target As Document
Private selected As Range
Private kept As Range

' The parts of the document's text: the main text, each note, each text box. A part has the same index
' in each collection.
Private partRanges As Collection
Private partAnchors As Collection
Private partStories As Collection

Private listedFields As Collection
Private listedParts As Collection

' The state of Word before a change.
Private tracking As Boolean
Private showingCodes As Boolean
Private selectionBefore As Range
Private recording As Boolean
Private changed As Boolean

' The platform of the exchange

Public Function TessaronCallScript(request As String) As String
#If Mac Then
    On Error GoTo Failed
    TessaronCallScript = AppleScriptTask(ScriptFile, ScriptHandler, request)
    Exit Function
Failed:
    ' Word reports a missing script and a missing handler with the same error.
    If ScriptExists() Then
        TessaronCallScript = "error: " & ScriptPath() & " has no handler " & ScriptHandler & _
            ". Install the version that belongs to this macro."
    Else
        TessaronCallScript = "error: " & ScriptPath() & " is not installed."
    End If
#Else
    TessaronCallScript = "error: Tessaron's macros run in Word for Mac only."
#End If
End Function

Private Function ScriptExists() As Boolean
    On Error Resume Next
    ScriptExists = GetAttr(ScriptPath()) >= 0
End Function

' In the sandbox, HOME is Word's container in the user's library.
Private Function ScriptPath() As String
    ScriptPath = Split(Environ("HOME"), "/Library/Containers/")(0) & _
        "/Library/Application Scripts/com.microsoft.Word/" & ScriptFile
End Function

Public Sub TessaronPause(milliseconds As Long)
    Dim slice As Long
    For slice = 1 To (milliseconds + 49) \ 50
        DoEvents ' Word draws, and the user can run TessaronCancel
#If Mac Then
        usleep 50000
#End If
    Next slice
End Sub

' Word's own temporary folder is inside its container, where both Word and the bridge may write.
Public Function TessaronTemporaryFolder() As String
    TessaronTemporaryFolder = Environ("TMPDIR")
    If Right(TessaronTemporaryFolder, 1) = "/" Then
        TessaronTemporaryFolder = Left(TessaronTemporaryFolder, Len(TessaronTemporaryFolder) - 1)
    End If
End Function

Public Function TessaronWordProcessor() As Variant
    TessaronWordProcessor = Array("Word", Application.Version)
End Function

' Messages

Public Sub TessaronSay(message As String)
    MsgBox message, vbExclamation, MessageTitle
End Sub

Public Sub TessaronNote(message As String)
    Application.StatusBar = message
End Sub

Public Function TessaronAsk(question As String) As Boolean
    TessaronAsk = MsgBox(question, vbQuestion + vbYesNo + vbDefaultButton2, MessageTitle) = vbYes
End Function

' The document

Public Function TessaronOpenDocument() As String
    If Documents.Count = 0 Then
        TessaronOpenDocument = "Open a document first."
        Exit Function
    End If
    Set target = ActiveDocument
    Set selected = Selection.Range.Duplicate
    TessaronOpenDocument = TessaronDocumentProblem()
    If TessaronOpenDocument = "" Then CollectParts
End Function

Public Function TessaronDocumentProblem() As String
    On Error GoTo Closed
    If target.ReadOnly Then
        TessaronDocumentProblem = "The document is read-only. Save it under another name first."
    ElseIf target.ProtectionType <> wdNoProtection Then
        TessaronDocumentProblem = "The document is protected. Stop its protection first."
    End If
    Exit Function
Closed:
    TessaronDocumentProblem = "The document was closed. Nothing was changed."
End Function

Public Function TessaronStyle() As String
    Dim item As Variable
    For Each item In target.Variables ' Variables(name) would fail if there is none
        If item.Name = StyleVariable Then TessaronStyle = item.Value
    Next item
End Function

Public Sub TessaronSetStyle(style As String)
    target.Variables(StyleVariable).Value = style
End Sub

' Parts and places

Private Sub CollectParts()
    Dim i As Long
    Set partRanges = New Collection
    Set partAnchors = New Collection
    Set partStories = New Collection
    AddPart target.Content, 0, 0
    For i = 1 To target.Footnotes.Count
        AddPart target.Footnotes(i).Range, target.Footnotes(i).Reference.Start, 1
    Next i
    For i = 1 To target.Endnotes.Count
        AddPart target.Endnotes(i).Range, target.Endnotes(i).Reference.Start, 2
    Next i
    For i = 1 To target.Shapes.Count
        AddBoxes target.Shapes(i), target.Shapes(i).Anchor.Start
    Next i
End Sub

Private Sub AddPart(ByVal part As Range, ByVal anchor As Long, ByVal story As Long)
    partRanges.Add part
    partAnchors.Add anchor
    partStories.Add story
End Sub

Private Sub AddBoxes(ByVal box As Shape, ByVal anchor As Long)
    Dim i As Long
    If box.Type = msoGroup Then
        For i = 1 To box.GroupItems.Count
            AddBoxes box.GroupItems(i), anchor
        Next i
    ElseIf HasText(box) Then
        ' Each text box is a story: positions in two of them cannot be compared.
        AddPart box.TextFrame.TextRange, anchor, 3 + partRanges.Count
    End If
End Sub

Private Function HasText(ByVal box As Shape) As Boolean
    On Error Resume Next ' a picture has no text frame
    HasText = box.TextFrame.HasText
End Function

Private Function PlaceIn(ByVal part As Long, ByVal first As Long, ByVal last As Long) As Variant
    PlaceIn = Array(partAnchors(part), partStories(part), first, last)
    If partStories(part) = 0 Then PlaceIn = Array(first, 0, first, last)
End Function

Private Function PlaceOf(ByVal where As Range) As Variant
    Dim part As Long
    For part = 1 To partRanges.Count
        If where.InRange(partRanges(part)) Then
            PlaceOf = PlaceIn(part, where.Start, where.End)
            Exit Function
        End If
    Next part
    PlaceOf = Array(0, -1, where.Start, where.End) ' a header, a footer, a comment
End Function

Public Function TessaronSelection() As Variant
    Dim last As String
    If selected.Start < selected.End Then last = selected.Characters.Last.Text
    TessaronSelection = Array(PlaceOf(selected), last)
End Function

Public Sub TessaronKeepPlace(position As Long)
    Set kept = selected.Duplicate
    kept.SetRange position, position
End Sub

Public Function TessaronKeptPlace() As Variant
    TessaronKeptPlace = PlaceOf(kept)
End Function

' Fields

Public Function TessaronListFields() As Long
    Dim part As Long, item As Field
    Set listedFields = New Collection
    Set listedParts = New Collection
    CollectParts
    For part = 1 To partRanges.Count
        For Each item In partRanges(part).Fields
            If Not IsDeleted(item) Then
                listedFields.Add item
                listedParts.Add part
            End If
        Next item
    Next part
    TessaronListFields = listedFields.Count
End Function

' With Track Changes, a deleted field stays in the document until the deletion is accepted.
Private Function IsDeleted(ByVal item As Field) As Boolean
    Dim change As Revision
    If target.Revisions.Count = 0 Then Exit Function
    For Each change In item.Code.Revisions
        If change.Type = wdRevisionDelete Then IsDeleted = True
    Next change
End Function

Public Function TessaronReadField(number As Long) As Variant
    Dim item As Field, text As String
    Set item = listedFields(number + 1)
    text = ResultText(item)
    TessaronReadField = Array(item.Code.Text, text, PlaceIn(listedParts(number + 1), _
        StartOf(item), EndOf(item)))
End Function

' In Range.Text, a picture is "/", and a field inside is only its text. A leading U+0001 means that the
' field contains something other than text. Each addition is a separate statement, because after an
' error On Error Resume Next continues with the next statement.
Private Function ResultText(ByVal item As Field) As String
    Dim others As Long
    On Error Resume Next ' a field may have no result, and a story may not support all of these
    ResultText = item.Result.Text
    others = others + item.Result.Fields.Count
    others = others + item.Result.InlineShapes.Count
    others = others + item.Result.ShapeRange.Count
    others = others + item.Result.OMaths.Count
    others = others + item.Result.Footnotes.Count
    others = others + item.Result.Endnotes.Count
    others = others + item.Result.Comments.Count
    If others > 0 Then ResultText = ChrW(1) & ResultText
End Function

' A field has one character each before its code, between code and result, and after its result.
Private Function StartOf(ByVal item As Field) As Long
    StartOf = item.Code.Start - 1
End Function

Private Function EndOf(ByVal item As Field) As Long
    EndOf = item.Code.End + 1
    On Error Resume Next ' a field without a result
    EndOf = item.Result.End + 1
End Function

Public Function TessaronFieldRuns(number As Long) As Variant
    Dim item As Field, character As Range, runs() As Variant, last As Long, marks As Long, _
        outside As Long
    Set item = listedFields(number + 1)
    ReDim runs(0)
    runs(0) = Array("", 0)
    outside = MarksOfField(item)
    For Each character In item.Result.Characters
        marks = MarksOf(character.Font) And Not outside
        If marks <> runs(last)(1) Then
            last = last + 1
            ReDim Preserve runs(last)
            runs(last) = Array("", marks)
        End If
        runs(last) = Array(runs(last)(0) & character.Text, marks)
    Next character
    TessaronFieldRuns = runs
End Function

' The formatting of the whole field is not part of the markup, for example in an italic heading.
Private Function MarksOfField(ByVal item As Field) As Long
    MarksOfField = MarksOf(item.Code.Characters(1).Font)
End Function

Private Function MarksOf(ByVal look As Font) As Long
    If look.Italic Then MarksOf = MarksOf + TessaronItalic
    If look.Bold Then MarksOf = MarksOf + TessaronBold
    If look.Superscript Then MarksOf = MarksOf + TessaronSuperscript
    If look.Subscript Then MarksOf = MarksOf + TessaronSubscript
    If look.SmallCaps Then MarksOf = MarksOf + TessaronSmallCaps
End Function

Public Function TessaronTextBetween(first As Long, last As Long) As String
    Dim between As Range
    Set between = listedFields(first + 1).Code
    between.SetRange EndOf(listedFields(first + 1)), StartOf(listedFields(last + 1))
    If between.Start < between.End Then TessaronTextBetween = between.Text
End Function

' Writing

Public Sub TessaronBeginChange()
    changed = False
    recording = False
    On Error Resume Next ' these are optional: the change is correct without them
    Application.ScreenUpdating = False
    Application.UndoRecord.StartCustomRecord "Tessaron"
    recording = Application.UndoRecord.IsRecordingCustomRecord
    Set selectionBefore = target.ActiveWindow.Selection.Range.Duplicate
    showingCodes = target.ActiveWindow.View.ShowFieldCodes
    target.ActiveWindow.View.ShowFieldCodes = False
    On Error GoTo 0
    ' With Track Changes on, the old code would stay beside the new one.
    tracking = target.TrackRevisions
    target.TrackRevisions = False
End Sub

' Restores all of Word's state, also after an error in one of the lines.
Public Sub TessaronEndChange(succeeded As Boolean)
    On Error Resume Next
    target.TrackRevisions = tracking
    If recording Then Application.UndoRecord.EndCustomRecord
    If changed And Not succeeded Then
        If recording Then
            target.Undo 1
        Else
            TessaronSay "Word could not undo this by itself. Undo it with Edit, Undo."
        End If
    End If
    target.ActiveWindow.View.ShowFieldCodes = showingCodes
    selectionBefore.Select
    Application.ScreenUpdating = True
End Sub

Public Function TessaronAddField(code As String) As Long
    Dim item As Field
    changed = True
    Set item = kept.Fields.Add(kept, wdFieldAddin, , False)
    item.Code.Text = code
    listedFields.Add item
    TessaronAddField = listedFields.Count - 1
End Function

Public Sub TessaronSetCode(number As Long, code As String)
    changed = True
    listedFields(number + 1).Code.Text = code
End Sub

Public Sub TessaronSetRuns(number As Long, runs As Variant)
    Dim item As Field, outside As Long, piece As Range, position As Long, i As Long
    changed = True
    Set item = listedFields(number + 1)
    outside = MarksOfField(item)
    item.Result.Text = TessaronPlainText(runs)
    SetMarks item.Result, outside
    position = item.Result.Start
    For i = 0 To UBound(runs)
        Set piece = item.Result
        piece.SetRange position, position + Len(runs(i)(0))
        If runs(i)(1) <> 0 Then SetMarks piece, outside Or runs(i)(1)
        position = position + Len(runs(i)(0))
    Next i
End Sub

Private Sub SetMarks(ByVal where As Range, ByVal marks As Long)
    With where.Font
        .Italic = (marks And TessaronItalic) <> 0
        .Bold = (marks And TessaronBold) <> 0
        .SmallCaps = (marks And TessaronSmallCaps) <> 0
        ' Switching on one of these switches off the other one.
        If (marks And TessaronSuperscript) <> 0 Then
            .Superscript = True
        ElseIf (marks And TessaronSubscript) <> 0 Then
            .Subscript = True
        Else
            .Superscript = False
            .Subscript = False
        End If
    End With
End Sub

Public Sub TessaronRemoveFields(first As Long, last As Long)
    Dim rest As Range
    changed = True
    Set rest = listedFields(first + 1).Code
    rest.SetRange EndOf(listedFields(first + 1)), EndOf(listedFields(last + 1))
    rest.Delete
End Sub

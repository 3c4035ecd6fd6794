Attribute VB_Name = "TessaronDocument"
Option Explicit
Option Private Module

' Layer 2 of 3, second half: the logic of the macros.
'
' A citation is a field with the code "ADDIN CSL_CITATION {...}", the bibliography a field with the
' code "ADDIN CSL_BIBLIOGRAPHY". Nothing is written before the answer for the whole document has
' been checked. Then everything is written in one step, which is undone if any part of it fails.
'
' This module does not use Word's object model. Another module (TessaronWord for Word) must have the
' procedures below. A place is Array(anchor, story, start, end): the main text is
' story 0; all footnotes share one story number, all endnotes another, and each text box has its own.
' Their anchor is where the main text refers to the note or text box. In the main text the anchor is
' the start.
'   TessaronOpenDocument() As String   takes the active document and its selection; these stay the
'                                      same while the user clicks elsewhere. Returns why the
'                                      document cannot be changed, or ""
'   TessaronDocumentProblem() As String      repeats that check later, for the same document
'   TessaronListFields() As Long             lists all fields, numbered from 0, in any order
'   TessaronReadField(number) As Variant     Array(code, text, place)
'   TessaronFieldRuns(number) As Variant     its text as runs (see TessaronText)
'   TessaronSelection() As Variant           Array(place, last character selected); story -1 where
'                                            a citation cannot be inserted
'   TessaronTextBetween(first, last)         the text between two fields
'   TessaronKeepPlace position               remembers a position in the selection's story; it moves
'                                            with the text while the user types
'   TessaronKeptPlace() As Variant           that position as a place
'   TessaronBeginChange                      begins one undo step
'   TessaronEndChange succeeded              ends it; undoes it if `succeeded` is False
'   TessaronAddField(code) As Long           adds a field at the kept place
'   TessaronSetCode number, code
'   TessaronSetRuns number, runs             vbCr in a text starts a paragraph
'   TessaronRemoveFields first, last         removes all after the field `first`, up to and with `last`
'   TessaronStyle(), TessaronSetStyle style  the document's style, "" at first
'   TessaronSay message                      shows a message, and waits for the user
'   TessaronNote message                     shows a message for a moment
'   TessaronAsk(question) As Boolean         yes or no
'   TessaronWordProcessor() As Variant       Array(name, version)

Private Const Unchanged As String = " Nothing was changed."
Private Const NoField As Long = -1

' The indexes in a citation, which is an array in `cites`.
Private Const FieldNumber As Long = 0 ' NoField if it is not in the document yet
Private Const OldCode As Long = 1 ' as in the document
Private Const ShownText As Long = 2
Private Const Place As Long = 3
Private Const Code As Long = 4 ' as sent, then as it came back
Private Const Markup As Long = 5 ' as it came back
Private Const Discard As Long = 6 ' True: an unrecorded edit by hand is to be lost

' The document as it was read last, in reading order, with the change that the macro wants.
Private cites As Variant
Private bibliographies As Variant ' arrays like those in `cites`, up to Place
Private otherFields As Variant
Private fingerprint As String
Private mergedFirst As Long ' field numbers; NoField without a merge
Private mergedLast As Long

Private busy As Boolean ' a macro is running
Private introduced As Boolean ' setWordProcessor was sent

' Runs one macro. If it fails, shows a message and leaves the document unchanged.
Public Sub TessaronDo(action As String)
    Dim message As String
    If busy Then ' during a wait, the user can start another macro
        TessaronSay "Tessaron is waiting for an answer. Close its dialog, or run TessaronCancel."
        Exit Sub
    End If
    busy = True
    On Error GoTo Failed
    TessaronRequestCancel False
    message = TessaronOpenDocument()
    If message <> "" Then Fail message
    StartApplication
    ReadDocument
    Perform action
    busy = False
    Exit Sub
Failed:
    message = Err.Description
    If Err.Number <> TessaronFailed Then message = "Error " & Err.Number & ": " & message
    Resume Report
Report:
    busy = False
    TessaronSay message
End Sub

Private Sub Perform(action As String)
    Select Case action
        Case "InsertCitation": InsertCitation
        Case "EditCitation": EditCitation
        Case "RefreshAll": RefreshAll
        Case "ChooseStyle": ChooseStyle
        Case "InsertBibliography": InsertBibliography
        Case "MergeCitations": MergeCitations
        Case "UndoManualEdit": UndoManualEdit
        Case Else: Fail "There is no macro """ & action & """."
    End Select
End Sub

' Cancels the running macro.
Public Sub TessaronCancelMacro()
    If busy Then
        TessaronRequestCancel True
    Else
        TessaronSay "Tessaron is not waiting for anything."
    End If
End Sub

' Switches the trace of the bridge's requests on or off.
Public Sub TessaronSwitchTrace()
    Dim path As String
    On Error GoTo Failed
    If TessaronTraceMode() <> "" Then
        path = TessaronSetTrace("")
        TessaronSay "The trace is off. It is in " & path & "."
    ElseIf TessaronAsk("The trace will list each request to Tessaron. Should it also contain " & _
            "the texts of your documents? Then do not send it to anyone who may not read them.") Then
        path = TessaronSetTrace("bodies")
        TessaronSay "The trace is on, with the texts of your documents. It is in " & path & "."
    Else
        path = TessaronSetTrace("requests")
        TessaronSay "The trace is on. It is in " & path & "."
    End If
    Exit Sub
Failed:
    TessaronSay Err.Description
End Sub

' The application

Private Sub StartApplication()
    If Not ApplicationRuns() Then
        introduced = False
        If AskOne("launchTessaron", "") <> "true" Then
            Fail "Tessaron Desktop could not be started. Start it, and try again."
        End If
    End If
    If introduced Then Exit Sub
    TessaronRunCommand "setWordProcessor", TessaronWordProcessor()
    introduced = True
End Sub

Private Function ApplicationRuns() As Boolean
    ApplicationRuns = AskOne("isTessaronRunning", "") = "true"
End Function

Private Function AskOne(commandName As String, argument As String) As String
    AskOne = TessaronRunCommand(commandName, Array(argument))(0)
End Function

' Runs a dialog. An empty answer means that the user cancelled or that the application failed.
Private Function AskDialog(commandName As String, argument As String) As String
    AskDialog = AskOne(commandName, argument)
    If AskDialog = "" And Not ApplicationRuns() Then
        Fail "Tessaron Desktop has ended. Start it and try again." & Unchanged
    End If
End Function

' Returns a code that can be written into the document.
Private Function Checked(newCode As String, citationName As String) As String
    If Not TessaronHoldsCitation(newCode) Then
        Fail "The answer of Tessaron for " & citationName & " contains no citation." & Unchanged
    End If
    Checked = TessaronWordCode(newCode)
End Function

' The macros

Private Sub InsertCitation()
    Dim newCode As String
    If CitationAt(SelectedPlace()) <> NoField Then
        EditCitation
        Exit Sub
    End If
    TessaronKeepPlace InsertPosition()
    newCode = AskDialog("getFieldCodeFromCitationEditor", "")
    If newCode = "" Then
        TessaronNote "Tessaron returned no citation."
        Exit Sub
    End If
    newCode = Checked(newCode, "the new citation")
    ReadDocument ' the user may have typed during the dialog
    AddCitation Array(NoField, "", "", TessaronKeptPlace(), newCode, "", False)
    RefreshOrKeep newCode, "", _
        "Insert the citation without its text? The text comes with the next refresh."
End Sub

Private Sub EditCitation()
    Dim index As Long, sent As String, newCode As String
    index = NeededCitation()
    sent = cites(index)(OldCode)
    KeepCitation index
    newCode = AskDialog("getFieldCodeFromCitationEditor", sent)
    If newCode = "" Or newCode = sent Then
        TessaronNote "The citation was not changed."
        Exit Sub
    End If
    newCode = Checked(newCode, CitationName(index))
    index = KeptCitation(sent)
    cites(index)(Code) = newCode
    RefreshOrKeep newCode, sent, _
        "Keep the changed citation with its old text? The new text comes with the next refresh."
End Sub

Private Sub RefreshAll()
    If UBound(cites) < 0 Then Fail "The document has no citations." & Unchanged
    FormatDocument DocumentStyle()
End Sub

Private Sub ChooseStyle()
    Dim chosen As String
    chosen = AskDialog("getCitationStyleFromDialog", DocumentStyle())
    If chosen = "" Then
        TessaronNote "Tessaron returned no style."
        Exit Sub
    End If
    ReadDocument
    If UBound(cites) >= 0 Then
        FormatDocument chosen
    Else
        CheckDocument
        TessaronBeginChange
        TessaronSetStyle chosen
        TessaronEndChange True
    End If
End Sub

Private Sub InsertBibliography()
    Dim last As Long
    If UBound(bibliographies) >= 0 Then
        Fail "The document already has a bibliography. Run TessaronRefreshAll to renew it."
    End If
    If UBound(cites) < 0 Then Fail "Insert a citation first." & Unchanged
    If CitationAt(SelectedPlace()) <> NoField Then
        Fail "The bibliography cannot be inside a citation." & Unchanged
    End If
    TessaronKeepPlace InsertPosition()
    If SelectedPlace()(1) <> 0 Then Fail "The bibliography must be in the main text." & Unchanged
    bibliographies = Array(Array(NoField, "", "", Empty))
    FormatDocument DocumentStyle()
End Sub

Private Sub MergeCitations()
    Dim first As Long, last As Long, i As Long, codes() As String, edited As Boolean, _
        merged As String
    SelectedCitations first, last
    If last <= first Then Fail "Select two or more adjacent citations." & Unchanged
    ReDim codes(last - first)
    For i = first To last
        codes(i - first) = cites(i)(OldCode)
        If IsEdited(i) Or TessaronHasManualEdit(codes(i - first)) Then edited = True
        If Not TessaronIsOnlyText(CStr(cites(i)(ShownText))) Then Fail NotOnlyText(i) & Unchanged
        If i > first Then CheckNeighbours i - 1, i
    Next i
    If edited Then
        If Not TessaronAsk("A text that was edited by hand will be lost. Merge the citations?") Then
            Exit Sub
        End If
    End If
    merged = TessaronRunCommand("mergeFields", codes)(0)
    If merged = "" Then Fail "Tessaron could not merge the citations." & Unchanged
    cites(first)(Code) = Checked(merged, "the merged citations")
    cites(first)(Discard) = True
    mergedFirst = cites(first)(FieldNumber)
    mergedLast = cites(last)(FieldNumber)
    RemoveCitations first + 1, last
    FormatDocument DocumentStyle()
End Sub

Private Sub UndoManualEdit()
    Dim index As Long, newCode As String
    index = NeededCitation()
    newCode = cites(index)(OldCode)
    If TessaronHasManualEdit(newCode) Then
        newCode = Checked(AskOne("undoManualFormat", newCode), CitationName(index))
        ' After a failure the same code comes back.
        If TessaronHasManualEdit(newCode) Then Fail "Tessaron could not undo the edit." & Unchanged
    ElseIf Not IsEdited(index) Then
        Fail "This citation was not edited by hand." & Unchanged
    End If
    cites(index)(Code) = newCode
    cites(index)(Discard) = True
    FormatDocument DocumentStyle()
End Sub

' Formats the document with the change. If that fails, the user can keep only the change, so that the
' work in the dialog is not lost. `sent` is the old code, "" for a new citation.
Private Sub RefreshOrKeep(newCode As String, sent As String, question As String)
    Dim message As String
    On Error GoTo Failed
    FormatDocument DocumentStyle()
    Exit Sub
Failed:
    message = Err.Description
    Resume Decide
Decide:
    On Error GoTo 0
    If Not TessaronAsk(message & vbLf & vbLf & question) Then Exit Sub
    message = TessaronDocumentProblem()
    If message <> "" Then Fail message
    WriteChangeOnly newCode, sent
End Sub

' The document

' Reads all fields, sorts the citations into reading order, and discards the change.
Private Sub ReadDocument()
    Dim i As Long, field As Variant
    cites = Array()
    bibliographies = Array()
    otherFields = Array()
    mergedFirst = NoField
    mergedLast = NoField
    For i = 0 To TessaronListFields() - 1
        field = TessaronReadField(i)
        If TessaronIsCitation(CStr(field(0))) Then
            AddCitation Array(i, Trim(field(0)), field(1), field(2), Trim(field(0)), "", False)
        ElseIf TessaronIsBibliography(CStr(field(0))) Then
            Append bibliographies, Array(i, Trim(field(0)), field(1), field(2))
        Else
            Append otherFields, Array(i, field(0), field(1), field(2))
        End If
    Next i
    RemoveNested
    fingerprint = FingerprintNow()
End Sub

' Ignores a citation inside another one or inside the bibliography: writing the outer field removes it.
' In the order of reading, the citations of a note that is anchored inside a field come between this
' field and those nested in it, so the last outer field in the main text is remembered as well.
Private Sub RemoveNested()
    Dim all As Variant, i As Long, outer As Variant, outerInMainText As Variant
    all = cites
    cites = Array()
    outer = Array(0, -1, 0, 0)
    outerInMainText = outer
    For i = 0 To UBound(all)
        If Not (IsInside(all(i)(Place), outer) Or IsInside(all(i)(Place), outerInMainText) _
                Or IsInsideAny(all(i)(Place), bibliographies)) Then
            Append cites, all(i)
            outer = all(i)(Place)
            If outer(1) = 0 Then outerInMainText = outer
        End If
    Next i
End Sub

' Returns all that must not change during a wait: codes and texts of citations and bibliographies.
Private Function FingerprintNow() As String
    Dim i As Long, field As Variant, parts() As String, total As Long
    total = TessaronListFields()
    If total = 0 Then Exit Function
    ReDim parts(total - 1)
    For i = 0 To total - 1
        field = TessaronReadField(i)
        If TessaronIsCitation(CStr(field(0))) Or TessaronIsBibliography(CStr(field(0))) Then
            parts(i) = i & " " & Trim(field(0)) & ChrW(1) & field(1)
        End If
    Next i
    FingerprintNow = Join(parts, ChrW(1))
End Function

' Fails if the citations have changed. Call this after a wait and before writing.
Private Sub CheckDocument()
    Dim problem As String
    problem = TessaronDocumentProblem()
    If problem <> "" Then Fail problem
    If FingerprintNow() <> fingerprint Then
        Fail "The citations of the document were changed while Tessaron was working. Try again." & _
            Unchanged
    End If
End Sub

Private Function DocumentStyle() As String
    DocumentStyle = TessaronStyle()
    If DocumentStyle <> "" Then Exit Function
    DocumentStyle = AskOne("getDesktopCitationStyleId", "")
    ' On failure, this command returns a sentence.
    If DocumentStyle = "" Or Left(DocumentStyle, 37) = "Can't get selected citation style id " Then
        Fail "Tessaron did not name its citation style. Choose a style in Tessaron Desktop." & _
            Unchanged
    End If
End Function

' Adds a citation in reading order. Usually the fields come in this order.
Private Sub AddCitation(citation As Variant)
    Dim i As Long
    Append cites, citation
    For i = UBound(cites) To 1 Step -1
        If Not IsBefore(citation(Place), cites(i - 1)(Place)) Then Exit For
        cites(i) = cites(i - 1)
    Next i
    cites(i) = citation
End Sub

Private Sub RemoveCitations(first As Long, last As Long)
    Dim i As Long, rest As Variant
    rest = Array()
    For i = 0 To UBound(cites)
        If i < first Or i > last Then Append rest, cites(i)
    Next i
    cites = rest
End Sub

Private Sub Append(list As Variant, element As Variant)
    ReDim Preserve list(UBound(list) + 1)
    list(UBound(list)) = element
End Sub

' Places

Private Function IsBefore(one As Variant, other As Variant) As Boolean
    Dim i As Long
    For i = 0 To 2 ' anchor, story, start
        If one(i) <> other(i) Then
            IsBefore = one(i) < other(i)
            Exit Function
        End If
    Next i
    ' A cursor at the start of a citation is before it.
    IsBefore = one(3) < other(3)
End Function

' Whether the first place is inside the second one. A cursor at the start or end of a field is outside.
Private Function IsInside(inner As Variant, outer As Variant) As Boolean
    If inner(1) <> outer(1) Or inner(2) < outer(2) Or inner(3) > outer(3) Then Exit Function
    IsInside = inner(2) < inner(3) Or (inner(2) > outer(2) And inner(3) < outer(3))
End Function

Private Function SelectedPlace() As Variant
    SelectedPlace = TessaronSelection()(0)
End Function

Private Function CitationAt(where As Variant) As Long
    Dim i As Long
    CitationAt = NoField
    For i = 0 To UBound(cites)
        If IsInside(where, cites(i)(Place)) Then CitationAt = i
    Next i
End Function

Private Function NeededCitation() As Long
    NeededCitation = CitationAt(SelectedPlace())
    If NeededCitation = NoField Then Fail "Put the cursor into a citation first."
End Function

' Where a new field goes: at the end of the selection, and never inside another field.
Private Function InsertPosition() As Long
    Dim where As Variant, cursor As Variant, i As Long
    where = SelectedPlace()
    If where(1) < 0 Then
        Fail "A citation can be in the main text, in text boxes, footnotes and endnotes." & _
            Unchanged
    End If
    InsertPosition = where(3)
    ' After the end mark, the field would be in the next paragraph or table cell.
    If where(2) < where(3) And InStr(vbCr & ChrW(7), Right(TessaronSelection()(1), 1)) > 0 Then
        If TessaronSelection()(1) <> "" Then InsertPosition = where(3) - 1
    End If
    cursor = Array(where(0), where(1), InsertPosition, InsertPosition)
    i = CitationAt(cursor)
    If i <> NoField Then InsertPosition = cites(i)(Place)(3)
    If IsInsideAny(cursor, bibliographies) Or IsInsideAny(cursor, otherFields) Then
        Fail "Put the cursor outside the other field first." & Unchanged
    End If
End Function

Private Function IsInsideAny(where As Variant, fields As Variant) As Boolean
    Dim i As Long
    For i = 0 To UBound(fields)
        If IsInside(where, fields(i)(Place)) Then IsInsideAny = True
    Next i
End Function

' Sets the first and the last citation in the selection; first > last if there is none.
Private Sub SelectedCitations(first As Long, last As Long)
    Dim i As Long, where As Variant, there As Variant
    where = SelectedPlace()
    first = 0
    last = -1
    For i = 0 To UBound(cites)
        there = cites(i)(Place)
        If there(1) = where(1) And there(2) < where(3) And there(3) > where(2) Then
            If last < first Then first = i
            last = i
        End If
    Next i
End Sub

Private Sub CheckNeighbours(one As Long, other As Long)
    Dim between As String
    between = "a note"
    If cites(one)(Place)(1) = cites(other)(Place)(1) Then
        between = TessaronTextBetween(CLng(cites(one)(FieldNumber)), _
            CLng(cites(other)(FieldNumber)))
    End If
    If Replace(Replace(Replace(between, " ", ""), vbTab, ""), ChrW(160), "") <> "" Then
        Fail "There is more than spaces between the selected citations." & Unchanged
    End If
End Sub

' While a dialog is open, field numbers can change. A position inside the field stays inside.
Private Sub KeepCitation(index As Long)
    TessaronKeepPlace cites(index)(Place)(2) + 1
End Sub

Private Function KeptCitation(sent As String) As Long
    ReadDocument
    KeptCitation = CitationAt(TessaronKeptPlace())
    If KeptCitation <> NoField Then
        If cites(KeptCitation)(OldCode) = sent Then Exit Function
    End If
    Fail "The citation was changed or removed while Tessaron was working." & Unchanged
End Function

' Texts edited by hand

Private Function IsEdited(index As Long) As Boolean
    Dim recorded As String
    recorded = TessaronRecordedMarkup(CStr(cites(index)(OldCode)))
    ' A citation without a text is not edited: the refresh restores the style's text.
    If recorded = "" Or cites(index)(ShownText) = "" Then Exit Function
    IsEdited = Not TessaronSameText(CStr(cites(index)(ShownText)), _
        TessaronPlainText(TessaronRunsOfMarkup(recorded)))
End Function

' Lets the application record what the user has typed into citations. Without the record, the refresh
' would replace it.
Private Sub RecordEdits()
    Dim i As Long
    For i = 0 To UBound(cites)
        If cites(i)(FieldNumber) <> NoField And Not cites(i)(Discard) Then
            If cites(i)(Code) = cites(i)(OldCode) And _
                TessaronIsOnlyText(CStr(cites(i)(ShownText))) Then
                If IsEdited(i) Then cites(i)(Code) = WithRecord(i)
            End If
        End If
    Next i
End Sub

Private Function WithRecord(index As Long) As String
    Dim before As String, typed As String, recorded As String
    before = cites(index)(OldCode)
    typed = TessaronMarkupOfRuns(TessaronFieldRuns(CLng(cites(index)(FieldNumber))))
    typed = TessaronSendableText(typed)
    WithRecord = Checked(CStr(TessaronRunCommand("checkManualFormatAndGetFieldCode", _
        Array(before, typed))(0)), CitationName(index))
    recorded = TessaronPlainText(TessaronRunsOfMarkup(TessaronManualMarkup(WithRecord)))
    If TessaronSameText(CStr(cites(index)(ShownText)), recorded) Then Exit Function
    ' The user chose the style's text in the application's dialog, which removed an older record.
    If TessaronHasManualEdit(before) And Not TessaronHasManualEdit(WithRecord) Then Exit Function
    ' The application failed, the user cancelled, or the user chose the style's text and there was no
    ' older record whose removal would show it.
    If Not TessaronAsk("You have edited the text of " & CitationName(index) & _
            ", and Tessaron has not recorded that. Replace your text?") Then
        Fail "The texts were not refreshed." & Unchanged
    End If
End Function

' The batch

' Formats all citations and the bibliography, and writes what changed.
Private Sub FormatDocument(style As String)
    Dim results As Variant, i As Long
    CheckCodes
    RecordEdits
    results = TessaronRunCommand("formatCitationsAndBibliography", BatchArguments(style))
    CheckBatch style, results
    For i = 0 To UBound(cites)
        cites(i)(Code) = Checked(CStr(results(3 + 4 * i)), CitationName(i))
        cites(i)(Markup) = results(4 + 4 * i)
        If Trim(TessaronPlainText(TessaronRunsOfMarkup(CStr(results(4 + 4 * i))))) = "" Then
            Fail "The answer of Tessaron has no text for " & CitationName(i) & "." & Unchanged
        End If
    Next i
    CheckDocument
    WriteDocument CStr(results(1)), CStr(results(2))
End Sub

' A citation that cannot be read stops the refresh. Without it, numbers and bibliography would be
' wrong.
Private Sub CheckCodes()
    Dim i As Long
    For i = 0 To UBound(cites)
        If Not TessaronHoldsCitation(CStr(cites(i)(Code))) Then
            Fail "The field code of " & CitationName(i) & _
                " is damaged. Replace or remove this citation." & Unchanged
        End If
    Next i
End Sub

Private Function BatchArguments(style As String) As Variant
    Dim arguments() As String, i As Long
    ReDim arguments(2 * UBound(cites) + 2)
    arguments(0) = style
    For i = 0 To UBound(cites)
        arguments(2 * i + 1) = cites(i)(Code)
        arguments(2 * i + 2) = SentText(i)
    Next i
    BatchArguments = arguments
End Function

' Returns the text to send. If the document still shows the application's text, this is that text with
' its formatting.
Private Function SentText(index As Long) As String
    Dim shown As String
    shown = cites(index)(ShownText)
    SentText = TessaronRecordedMarkup(CStr(cites(index)(Code)))
    If SentText <> "" Then
        If TessaronSameText(shown, TessaronPlainText(TessaronRunsOfMarkup(SentText))) Then
            Exit Function
        End If
    End If
    SentText = TessaronMarkupOfText(TessaronSendableText(shown))
End Function

Private Sub CheckBatch(style As String, results As Variant)
    If results(0) = "false" And UBound(results) = 1 Then
        Fail Refusal(style, CStr(results(1))) & Unchanged
    End If
    If results(0) <> "true" Or UBound(results) <> 2 + 4 * (UBound(cites) + 1) Then
        Fail "The answer of Tessaron does not fit the document." & Unchanged
    End If
    If results(1) = "" Then Fail "The answer of Tessaron names no style." & Unchanged
    If results(2) = "" Then Fail "The answer of Tessaron has no bibliography." & Unchanged
End Sub

Private Function Refusal(style As String, index As String) As String
    Dim i As Long
    For i = 0 To UBound(cites)
        If index = CStr(i) Then
            Refusal = "Tessaron cannot format " & CitationName(i) & "."
            Exit Function
        End If
    Next i
    If ApplicationRuns() Then
        Refusal = "Tessaron could not format the document in the style " & style & "."
    Else
        Refusal = "Tessaron Desktop has ended. Start it, and try again."
    End If
End Function

' Writing

Private Sub WriteDocument(style As String, bibliography As String)
    Dim i As Long, unwritten As String, message As String
    TessaronBeginChange
    On Error GoTo Failed
    RemoveMerged
    For i = 0 To UBound(cites)
        unwritten = unwritten & WriteCitation(i)
    Next i
    For i = 0 To UBound(bibliographies)
        unwritten = unwritten & WriteBibliography(i, bibliography)
    Next i
    If TessaronStyle() <> style Then TessaronSetStyle style
    TessaronEndChange True
    TessaronNote "Citations refreshed: " & UBound(cites) + 1
    If unwritten = "" Then Exit Sub
    TessaronSay "These were counted but not written. Their texts may be out of date." & unwritten
    Exit Sub
Failed:
    message = Err.Description
    Resume Undo
Undo:
    On Error GoTo 0
    TessaronEndChange False
    Fail "The document could not be changed: " & message & Unchanged
End Sub

' Writes only what the user chose in the dialog, without a refresh.
Private Sub WriteChangeOnly(newCode As String, sent As String)
    Dim index As Long, message As String
    ReadDocument
    If sent <> "" Then index = KeptCitation(sent)
    TessaronBeginChange
    On Error GoTo Failed
    If sent = "" Then
        TessaronSetRuns TessaronAddField(newCode), Array(Array("{Citation}", 0))
    Else
        TessaronSetCode CLng(cites(index)(FieldNumber)), newCode
    End If
    TessaronEndChange True
    Exit Sub
Failed:
    message = Err.Description
    Resume Undo
Undo:
    On Error GoTo 0
    TessaronEndChange False
    Fail "The document could not be changed: " & message & Unchanged
End Sub

Private Sub RemoveMerged()
    If mergedFirst <> NoField Then TessaronRemoveFields mergedFirst, mergedLast
End Sub

' Writes what changed. Returns a line for the user if the field cannot be written.
Private Function WriteCitation(index As Long) As String
    Dim number As Long, runs As Variant, shown As String
    number = cites(index)(FieldNumber)
    shown = cites(index)(ShownText)
    runs = TessaronWordRuns(CStr(cites(index)(Markup)), ChrW(11))
    If number = NoField Then
        TessaronSetRuns TessaronAddField(CStr(cites(index)(Code))), runs
    ElseIf Not TessaronIsOnlyText(shown) Then
        WriteCitation = vbLf & NotOnlyText(index)
    Else
        If cites(index)(Code) <> cites(index)(OldCode) Then
            TessaronSetCode number, CStr(cites(index)(Code))
        End If
        If shown <> TessaronPlainText(runs) Or _
            cites(index)(Markup) <> TessaronRecordedMarkup(CStr(cites(index)(OldCode))) Then
            TessaronSetRuns number, runs
        End If
    End If
End Function

Private Function WriteBibliography(index As Long, newMarkup As String) As String
    Dim number As Long, newCode As String, shown As String, runs As Variant
    number = bibliographies(index)(FieldNumber)
    shown = bibliographies(index)(ShownText)
    newCode = TessaronBibliographyCode(newMarkup)
    runs = TessaronWordRuns(newMarkup, vbCr)
    If number = NoField Then
        TessaronSetRuns TessaronAddField(newCode), runs
    ElseIf Not TessaronIsOnlyText(Replace(shown, vbCr, "")) Then
        WriteBibliography = vbLf & "The bibliography contains something other than text."
    ElseIf newCode <> bibliographies(index)(OldCode) Or shown <> TessaronPlainText(runs) Then
        TessaronSetCode number, newCode
        TessaronSetRuns number, runs
    End If
End Function

' Messages

Private Function NotOnlyText(index As Long) As String
    NotOnlyText = UCase(Left(CitationName(index), 1)) & Mid(CitationName(index), 2) & _
        " contains something other than text."
End Function

Private Function CitationName(index As Long) As String
    Dim shown As String
    shown = Left(Trim(Replace(cites(index)(ShownText), ChrW(1), "")), 60)
    CitationName = "citation " & index + 1
    If shown <> "" Then CitationName = CitationName & " (""" & shown & """)"
End Function

Private Sub Fail(message As String)
    Err.Raise TessaronFailed, "TessaronDocument", message
End Sub

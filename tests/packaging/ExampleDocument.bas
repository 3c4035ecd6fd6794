Option Explicit

' A simple document that replaces Word's in the tests of the example. It is a list of pieces of stories.
' A piece is a text, a field, a field nested in the field before it, or the anchor of another story.
' TessaronDocument.bas has the contract of the procedures whose names begin with "Tessaron".
'
' In a file, pieces are separated by U+E000, and the parts of a piece by U+E001: story, kind, code,
' runs. Runs are separated by U+E002, and a run's marks from its text by U+E003. For an anchor, the
' code is the number of its story. The first piece of a file is the style.

Private style As String
Private pieces As Variant ' each an Array(id, story, kind, code, runs)
Private lastId As Long
Private starts() As Long ' where each piece starts; valid while `startsAreKnown`
Private startsAreKnown As Boolean
Private listed As Variant ' ids of the fields
Private selected As Variant ' story, start, end
Private keptId As Long ' the piece with the kept place
Private keptOffset As Long ' from the start of that piece to the kept place; in a text, from its end
Private before As String ' the document before the change that has begun
Private problem As String
Private writesUntilFailure As Long
Private userAction As String ' in the first pause of the command `userCommand`
Private userCommand As String
Private answers As String

Private Sub Reset
    problem = ""
    writesUntilFailure = -1
    userAction = ""
    answers = ""
    selected = Array(0, 0, 0)
End Sub

Sub LoadDocument(content As String)
    Reset
    ReadPieces content
End Sub

Sub ReadPieces(content As String)
    Dim parts As Variant, piece As Variant, i As Long
    parts = Split(content, ChrW(&HE000))
    style = parts(0)
    pieces = Array()
    For i = 1 To UBound(parts)
        piece = Split(parts(i), ChrW(&HE001))
        AppendPiece Array(i, CLng(piece(0)), piece(1), piece(2), ReadRuns(CStr(piece(3))))
    Next i
    lastId = UBound(parts)
End Sub

Function SavedDocument() As String
    Dim i As Long, parts() As String
    ReDim parts(UBound(pieces) + 1)
    parts(0) = style
    For i = 0 To UBound(pieces)
        parts(i + 1) = Join(Array(CStr(pieces(i)(1)), pieces(i)(2), pieces(i)(3), _
            WrittenRuns(pieces(i)(4))), ChrW(&HE001))
    Next i
    SavedDocument = Join(parts, ChrW(&HE000))
End Function

Function ReadRuns(text As String) As Variant
    Dim parts As Variant, i As Long, run As Variant, runs As Variant
    runs = Array()
    If text <> "" Then
        parts = Split(text, ChrW(&HE002))
        ReDim runs(UBound(parts))
        For i = 0 To UBound(parts)
            run = Split(parts(i), ChrW(&HE003))
            runs(i) = Array(run(1), CLng(run(0)))
        Next i
    End If
    ReadRuns = runs
End Function

Function WrittenRuns(runs As Variant) As String
    Dim i As Long
    For i = 0 To UBound(runs)
        If i > 0 Then WrittenRuns = WrittenRuns & ChrW(&HE002)
        WrittenRuns = WrittenRuns & runs(i)(1) & ChrW(&HE003) & runs(i)(0)
    Next i
End Function

' Selects from an offset in one piece to an offset in another one. Pieces count from 0.
Sub SelectPieces(first As Long, firstOffset As Long, last As Long, lastOffset As Long)
    selected = Array(pieces(first)(1), StartOf(first) + firstOffset, StartOf(last) + lastOffset)
End Sub

' Sets how the document behaves from now on.
Sub PrepareDocument(what As String, value As String)
    Select Case what
        Case "problem": problem = value
        Case "failing write": writesUntilFailure = CLng(value)
        Case "answers": answers = value
        Case Else
            If Left(what, 7) <> "during " Then Err.Raise 1, "", "no such preparation"
            userCommand = Mid(what, 8)
            userAction = value
    End Select
End Sub

Sub DuringWait(commandName As String)
    Dim action As String
    If commandName <> userCommand Then Exit Sub
    action = userAction
    userAction = ""
    Select Case action
        Case "": Exit Sub
        Case "delete field": RemovePiece FirstField()
        Case "type in field": SetPiece FirstField(), 4, Array(Array("typed during the wait", 0))
        Case "type in text": SetPiece 0, 4, Array(Array("typed during the wait. " & PieceText(0), _
            0))
        Case "close document": problem = "The document was closed."
        Case "cancel": TessaronCancelMacro
        Case "start another macro": TessaronDo "RefreshAll"
        Case Else: Shell action, 0, "", True
    End Select
End Sub

' Pieces

Sub AppendPiece(piece As Variant)
    startsAreKnown = False
    ReDim Preserve pieces(UBound(pieces) + 1)
    pieces(UBound(pieces)) = piece
End Sub

Sub InsertPiece(index As Long, piece As Variant)
    Dim i As Long
    AppendPiece piece
    For i = UBound(pieces) To index + 1 Step -1
        pieces(i) = pieces(i - 1)
    Next i
    pieces(index) = piece
End Sub

Sub RemovePiece(index As Long)
    Dim i As Long, rest As Variant
    If pieces(index)(0) = keptId Then ' like a Range in Word, which collapses
        keptId = pieces(index - 1)(0)
        keptOffset = 0
    End If
    rest = pieces
    pieces = Array()
    For i = 0 To UBound(rest)
        If i <> index Then AppendPiece rest(i)
    Next i
End Sub

Sub SetPiece(index As Long, part As Long, value As Variant)
    Dim piece As Variant
    startsAreKnown = False
    piece = pieces(index)
    piece(part) = value
    pieces(index) = piece
End Sub

Function FirstField() As Long
    Do While pieces(FirstField)(2) <> "field"
        FirstField = FirstField + 1
    Loop
End Function

Function IndexOf(id As Long) As Long
    ' When a document is loaded, its pieces get the ids 1, 2 and so on.
    If id <= UBound(pieces) Then IndexOf = id - 1
    If pieces(IndexOf)(0) <> id Then IndexOf = 0
    Do While pieces(IndexOf)(0) <> id
        IndexOf = IndexOf + 1
    Loop
End Function

Function PieceText(index As Long) As String
    PieceText = TessaronPlainText(pieces(index)(4))
End Function

' A field has one character each before its code, between code and text, and after its text, as in Word.
Function LengthOf(index As Long) As Long
    Select Case pieces(index)(2)
        Case "text": LengthOf = Len(PieceText(index))
        Case "field": LengthOf = Len(pieces(index)(3)) + Len(PieceText(index)) + 3
        Case "anchor": LengthOf = 1
    End Select
End Function

Function StartOf(index As Long) As Long
    If Not startsAreKnown Then FindStarts
    StartOf = starts(index)
End Function

Sub FindStarts
    Dim i As Long, story As Long, ends(9) As Long
    ReDim starts(UBound(pieces))
    For i = 0 To UBound(pieces)
        story = pieces(i)(1) + 1 ' story numbers start at -1
        starts(i) = ends(story)
        If pieces(i)(2) = "nested" Then starts(i) = starts(i - 1) + Len(pieces(i - 1)(3)) + 2
        ends(story) = ends(story) + LengthOf(i)
    Next i
    startsAreKnown = True
End Sub

Function EndOf(index As Long) As Long
    EndOf = StartOf(index) + LengthOf(index)
    If pieces(index)(2) = "nested" Then EndOf = StartOf(index) + 2
End Function

Function PlaceOf(story As Long, first As Long, last As Long) As Variant
    Dim anchor As Long, i As Long
    anchor = first
    PlaceOf = Array(first, 0, first, last)
    If story = 0 Then Exit Function
    For i = 0 To UBound(pieces)
        If pieces(i)(2) = "anchor" And pieces(i)(3) = CStr(story) Then anchor = StartOf(i)
    Next i
    PlaceOf = Array(anchor, story, first, last)
End Function

' What TessaronDocument needs

Function TessaronOpenDocument() As String
    TessaronOpenDocument = problem
End Function

Function TessaronDocumentProblem() As String
    TessaronDocumentProblem = problem
End Function

' Lists the fields from the last to the first, because the logic must not rely on an order.
Function TessaronListFields() As Long
    Dim i As Long
    listed = Array()
    For i = UBound(pieces) To 0 Step -1
        If pieces(i)(2) = "field" Or pieces(i)(2) = "nested" Then
            ReDim Preserve listed(UBound(listed) + 1)
            listed(UBound(listed)) = pieces(i)(0)
        End If
    Next i
    TessaronListFields = UBound(listed) + 1
End Function

Function FieldIndex(number As Long) As Long
    FieldIndex = IndexOf(CLng(listed(number)))
End Function

Function TessaronReadField(number As Long) As Variant
    Dim i As Long
    i = FieldIndex(number)
    TessaronReadField = Array(pieces(i)(3), PieceText(i), PlaceOf(CLng(pieces(i)(1)), StartOf(i), _
        EndOf(i)))
End Function

Function TessaronFieldRuns(number As Long) As Variant
    TessaronFieldRuns = pieces(FieldIndex(number))(4)
End Function

Function TessaronSelection() As Variant
    Dim i As Long, last As String
    For i = 0 To UBound(pieces)
        If pieces(i)(1) = selected(0) And pieces(i)(2) = "text" And StartOf(i) < selected(2) And _
            EndOf(i) >= selected(2) Then
            last = Mid(PieceText(i), selected(2) - StartOf(i), 1)
        End If
    Next i
    TessaronSelection = Array(PlaceOf(CLng(selected(0)), CLng(selected(1)), CLng(selected(2))), _
        last)
End Function

Function TessaronTextBetween(first As Long, last As Long) As String
    Dim i As Long
    For i = FieldIndex(first) + 1 To FieldIndex(last) - 1
        If pieces(i)(2) = "text" Then
            TessaronTextBetween = TessaronTextBetween & PieceText(i)
        Else
            TessaronTextBetween = TessaronTextBetween & Chr(2)
        End If
    Next i
End Function

Sub TessaronKeepPlace(position As Long)
    Dim i As Long
    For i = 0 To UBound(pieces)
        If pieces(i)(1) = selected(0) And pieces(i)(2) <> "nested" And StartOf(i) <= position And _
            position <= EndOf(i) Then
            ' At the border of two pieces, chooses the text, so that the field beside it can be removed.
            If pieces(i)(2) = "text" Or position < EndOf(i) Or i = UBound(pieces) Then
                keptId = pieces(i)(0)
                keptOffset = position - StartOf(i)
                If pieces(i)(2) = "text" Then keptOffset = position - EndOf(i)
                Exit For
            End If
        End If
    Next i
End Sub

' In a text, the offset counts from its end, because the tests type at its start.
Function TessaronKeptPlace() As Variant
    Dim i As Long, position As Long
    i = IndexOf(keptId)
    position = StartOf(i) + keptOffset
    If pieces(i)(2) = "text" Then position = EndOf(i) + keptOffset
    TessaronKeptPlace = PlaceOf(CLng(pieces(i)(1)), position, position)
End Function

Sub TessaronBeginChange
    before = SavedDocument()
End Sub

Sub TessaronEndChange(succeeded As Boolean)
    If Not succeeded Then ReadPieces before
    If succeeded Then Message "one undo step"
End Sub

Sub CountWrite(what As String)
    If writesUntilFailure = 0 Then Err.Raise 5, "", "The field is locked."
    writesUntilFailure = writesUntilFailure - 1
    Message "write " & what
End Sub

Function TessaronAddField(code As String) As Long
    Dim i As Long, place As Variant, offset As Long, text As String
    CountWrite "new field"
    place = TessaronKeptPlace()
    i = IndexOf(keptId)
    offset = place(2) - StartOf(i)
    text = PieceText(i)
    lastId = lastId + 2
    If pieces(i)(2) = "text" Then
        SetPiece i, 4, Array(Array(Left(text, offset), 0))
        InsertPiece i + 1, Array(lastId - 1, place(1), "text", "", Array(Array(Mid(text, _
            offset + 1), 0)))
        i = i + 1
    ElseIf offset > 0 Then
        If offset < LengthOf(i) Then Err.Raise 5, "", "a field inside a field"
        i = i + 1
    End If
    InsertPiece i, Array(lastId, place(1), "field", code, Array())
    ReDim Preserve listed(UBound(listed) + 1)
    listed(UBound(listed)) = lastId
    TessaronAddField = UBound(listed)
End Function

Sub TessaronSetCode(number As Long, code As String)
    CountWrite "code"
    SetPiece FieldIndex(number), 3, code
End Sub

Sub TessaronSetRuns(number As Long, runs As Variant)
    CountWrite "text"
    SetPiece FieldIndex(number), 4, runs
End Sub

Sub TessaronRemoveFields(first As Long, last As Long)
    Dim i As Long
    CountWrite "removal"
    For i = FieldIndex(last) To FieldIndex(first) + 1 Step -1
        RemovePiece i
    Next i
End Sub

Function TessaronStyle() As String
    TessaronStyle = style
End Function

Sub TessaronSetStyle(newStyle As String)
    CountWrite "style"
    style = newStyle
End Sub

Sub TessaronSay(text As String)
    Message "say " & text
End Sub

Sub TessaronNote(text As String)
    Message "note " & text
End Sub

Function TessaronAsk(question As String) As Boolean
    Message "ask " & question
    If answers = "" Then Err.Raise 1, "", "a question without an answer"
    TessaronAsk = Left(answers, 1) = "y"
    answers = Mid(answers, 2)
End Function

Function TessaronWordProcessor() As Variant
    TessaronWordProcessor = Array("Test", "1.0")
End Function

Attribute VB_Name = "TessaronText"
Option Explicit
Option Private Module

' Layer 2 of 3, first half: reads and writes field codes and formatted texts. Pure functions.
'
' A formatted text is markup: <i>, <b>, <sup>, <sub> and <span style="font-variant:small-caps;">,
' with &amp; &lt; &gt; for those three characters. In memory it is an array of runs. A run is an array
' of a text and its marks, the sum of:
Public Const TessaronItalic As Long = 1
Public Const TessaronBold As Long = 2
Public Const TessaronSuperscript As Long = 4
Public Const TessaronSubscript As Long = 8
Public Const TessaronSmallCaps As Long = 16

' Field codes

Public Function TessaronIsCitation(code As String) As Boolean
    TessaronIsCitation = NamesField(code, "CSL_CITATION")
End Function

Public Function TessaronIsBibliography(code As String) As Boolean
    TessaronIsBibliography = NamesField(code, "CSL_BIBLIOGRAPHY")
End Function

Private Function NamesField(code As String, fieldName As String) As Boolean
    Dim rest As String
    rest = LTrim(code)
    If Left(rest, 6) <> "ADDIN " Then Exit Function
    rest = LTrim(Mid(rest, 7)) & " "
    If Left(rest, Len(fieldName)) <> fieldName Then Exit Function
    NamesField = InStr(" {", Mid(rest, Len(fieldName) + 1, 1)) > 0
End Function

' Whether the code is a citation with at least one work. An answer that was cut off gives the code
' "ADDIN CSL_CITATION null", which must not be written into a document.
Public Function TessaronHoldsCitation(code As String) As Boolean
    Dim items As String
    If Not TessaronIsCitation(code) Then Exit Function
    items = TessaronJsonMember(ClusterOf(code), "citationItems")
    If Left(items, 1) <> "[" Then Exit Function
    TessaronHoldsCitation = Mid(items, AfterSpace(items, 2), 1) <> "]"
End Function

' The markup that the application put into the document last, or "".
Public Function TessaronRecordedMarkup(code As String) As String
    TessaronRecordedMarkup = TessaronManualMarkup(code)
    If TessaronRecordedMarkup = "" Then
        TessaronRecordedMarkup = TessaronJsonText(RecordMember(code, "previouslyFormattedCitation"))
    End If
End Function

' The markup that the application recorded as edited by hand, or "".
Public Function TessaronManualMarkup(code As String) As String
    TessaronManualMarkup = TessaronJsonText(RecordMember(code, "manualFormatting"))
End Function

' Whether the code has a record of an edit, whatever its value. The bridge's command
' hasManualEdit returns the same, but costs one process per citation.
Public Function TessaronHasManualEdit(code As String) As Boolean
    TessaronHasManualEdit = RecordMember(code, "manualFormatting") <> ""
End Function

Private Function RecordMember(code As String, memberKey As String) As String
    RecordMember = TessaronJsonMember(TessaronJsonMember(ClusterOf(code), "tessaron"), memberKey)
End Function

Private Function ClusterOf(code As String) As String
    Dim start As Long
    start = InStr(code, "{")
    If start > 0 Then ClusterOf = Mid(code, start)
End Function

' Returns the code with escape sequences for characters that Word cannot store. They occur only inside
' JSON strings, where an escape sequence has the same meaning.
Public Function TessaronWordCode(code As String) As String
    TessaronWordCode = Storable(code, True)
End Function

' The code of a bibliography's field. It contains a checksum of the markup, so that a change of only
' the italics is noticed.
Public Function TessaronBibliographyCode(markup As String) As String
    Dim sum As Long, i As Long
    For i = 1 To Len(markup)
        sum = (sum * 31 + (AscW(Mid(markup, i, 1)) And &HFFFF&)) Mod 16777213
    Next i
    TessaronBibliographyCode = "ADDIN CSL_BIBLIOGRAPHY " & Hex(sum)
End Function

' JSON

' The JSON of the member `memberKey`, or "" if `json` is not an object or has no such member.
Public Function TessaronJsonMember(json As String, memberKey As String) As String
    Dim at As Long, start As Long, found As String, thisKey As String
    at = AfterSpace(json, 1)
    If Mid(json, at, 1) <> "{" Then Exit Function
    at = AfterSpace(json, at + 1)
    Do While Mid(json, at, 1) = """"
        start = at
        at = AfterString(json, start)
        thisKey = TessaronJsonText(Mid(json, start, at - start))
        at = AfterSpace(json, at)
        If Mid(json, at, 1) <> ":" Then Exit Function
        start = AfterSpace(json, at + 1)
        at = AfterValue(json, start)
        If thisKey = memberKey Then found = Mid(json, start, at - start)
        at = AfterSpace(json, at)
        If Mid(json, at, 1) <> "," Then Exit Do
        at = AfterSpace(json, at + 1)
    Loop
    ' A truncated object has no members.
    If Mid(json, at, 1) = "}" And AfterSpace(json, at + 1) > Len(json) Then
        TessaronJsonMember = found
    End If
End Function

' The text of a JSON string, or "" if it is another value.
Public Function TessaronJsonText(value As String) As String
    Dim at As Long, mark As Long
    If Left(value, 1) <> """" Then Exit Function
    at = 2
    Do
        mark = InStr(at, value, "\")
        If mark = 0 Then Exit Do
        TessaronJsonText = TessaronJsonText & Mid(value, at, mark - at) & Unescaped(value, mark)
        at = mark + 2
        If Mid(value, mark + 1, 1) = "u" Then at = mark + 6
    Loop
    If Len(value) > at Then TessaronJsonText = TessaronJsonText & Mid(value, at, Len(value) - at)
End Function

Private Function Unescaped(value As String, mark As Long) As String
    Select Case Mid(value, mark + 1, 1)
        Case "b": Unescaped = ChrW(8)
        Case "f": Unescaped = ChrW(12)
        Case "n": Unescaped = ChrW(10)
        Case "r": Unescaped = ChrW(13)
        Case "t": Unescaped = ChrW(9)
        Case "u": Unescaped = ChrW(CLng("&H" & Mid(value, mark + 2, 4) & "&"))
        Case Else: Unescaped = Mid(value, mark + 1, 1)
    End Select
End Function

' These functions return the position after an element, or after the end of the text if it is cut off.

Private Function AfterSpace(json As String, ByVal at As Long) As Long
    Do While at <= Len(json)
        If InStr(" " & vbTab & vbLf & vbCr, Mid(json, at, 1)) = 0 Then Exit Do
        at = at + 1
    Loop
    AfterSpace = at
End Function

Private Function AfterValue(json As String, at As Long) As Long
    Select Case Mid(json, at, 1)
        Case """": AfterValue = AfterString(json, at)
        Case "{", "[": AfterValue = AfterContainer(json, at)
        Case Else: AfterValue = AfterWord(json, at)
    End Select
End Function

Private Function AfterString(json As String, ByVal at As Long) As Long
    Dim backslashes As Long
    Do
        at = InStr(at + 1, json, """")
        If at = 0 Then
            AfterString = Len(json) + 1
            Exit Function
        End If
        backslashes = 0
        Do While Mid(json, at - 1 - backslashes, 1) = "\"
            backslashes = backslashes + 1
        Loop
    Loop While backslashes Mod 2 = 1
    AfterString = at + 1
End Function

Private Function AfterContainer(json As String, ByVal at As Long) As Long
    Dim depth As Long
    Do While at <= Len(json)
        Select Case Mid(json, at, 1)
            Case "{", "[": depth = depth + 1
            Case "}", "]": depth = depth - 1
            Case """": at = AfterString(json, at) - 1
        End Select
        at = at + 1
        If depth = 0 Then Exit Do
    Loop
    AfterContainer = at
End Function

Private Function AfterWord(json As String, ByVal at As Long) As Long
    Do While at <= Len(json)
        If InStr(",}] " & vbTab & vbLf & vbCr, Mid(json, at, 1)) > 0 Then Exit Do
        at = at + 1
    Loop
    AfterWord = at
End Function

' Formatted texts

' The runs of a markup. Any tag other than those listed above is treated as text.
Public Function TessaronRunsOfMarkup(markup As String) As Variant
    Dim runs As Variant, at As Long, mark As Long, openTags As String, length As Long
    runs = Array()
    at = 1
    Do While at <= Len(markup)
        mark = NextMark(markup, at)
        AddRun runs, Mid(markup, at, mark - at), MarksOf(openTags)
        at = mark
        If at > Len(markup) Then Exit Do
        length = TagLength(markup, at, openTags)
        If length = 0 Then
            length = 1
            If Mid(markup, at, 5) = "&amp;" Then length = 5
            If Mid(markup, at, 4) = "&lt;" Or Mid(markup, at, 4) = "&gt;" Then length = 4
            AddRun runs, Character(Mid(markup, at, length)), MarksOf(openTags)
        End If
        at = at + length
    Loop
    TessaronRunsOfMarkup = runs
End Function

' A text without formatting as markup.
Public Function TessaronMarkupOfText(text As String) As String
    TessaronMarkupOfText = Replace(Replace(Replace(text, "&", "&amp;"), "<", "&lt;"), ">", "&gt;")
End Function

Public Function TessaronMarkupOfRuns(runs As Variant) As String
    Dim i As Long, tag As Long, opening As String, closing As String
    For i = LBound(runs) To UBound(runs)
        opening = ""
        closing = ""
        For tag = 0 To 4
            If (runs(i)(1) And 2 ^ tag) <> 0 Then
                opening = opening & OpeningTags()(tag)
                closing = ClosingTags()(tag) & closing
            End If
        Next tag
        TessaronMarkupOfRuns = TessaronMarkupOfRuns & opening & _
            TessaronMarkupOfText(CStr(runs(i)(0))) & closing
    Next i
End Function

Public Function TessaronPlainText(runs As Variant) As String
    Dim i As Long
    For i = LBound(runs) To UBound(runs)
        TessaronPlainText = TessaronPlainText & runs(i)(0)
    Next i
End Function

Private Function OpeningTags() As Variant
    OpeningTags = Array("<i>", "<b>", "<sup>", "<sub>", "<span style=""font-variant:small-caps;"">")
End Function

Private Function ClosingTags() As Variant
    ClosingTags = Array("</i>", "</b>", "</sup>", "</sub>", "</span>")
End Function

' If a tag starts at `at`, returns its length and changes `openTags`, which has a digit for each
' open tag. Otherwise returns 0.
Private Function TagLength(markup As String, at As Long, openTags As String) As Long
    Dim tag As Long, found As Long
    For tag = 0 To 4
        If Mid(markup, at, Len(OpeningTags()(tag))) = OpeningTags()(tag) Then
            openTags = openTags & tag
            TagLength = Len(OpeningTags()(tag))
            Exit Function
        End If
        found = InStrRev(openTags, CStr(tag))
        If found > 0 And Mid(markup, at, Len(ClosingTags()(tag))) = ClosingTags()(tag) Then
            openTags = Left(openTags, found - 1) & Mid(openTags, found + 1)
            TagLength = Len(ClosingTags()(tag))
            Exit Function
        End If
    Next tag
End Function

' Text cannot be superscript and subscript at once: of nested tags, the inner one applies.
Private Function MarksOf(openTags As String) As Long
    Dim tag As Long
    For tag = 0 To 4
        If InStr(openTags, CStr(tag)) > 0 Then MarksOf = MarksOf + 2 ^ tag
    Next tag
    If InStr(openTags, "2") > 0 And InStr(openTags, "3") > 0 Then
        If InStrRev(openTags, "2") > InStrRev(openTags, "3") Then
            MarksOf = MarksOf - TessaronSubscript
        Else
            MarksOf = MarksOf - TessaronSuperscript
        End If
    End If
End Function

Private Function NextMark(markup As String, at As Long) As Long
    Dim ampersand As Long
    NextMark = InStr(at, markup, "<")
    ampersand = InStr(at, markup, "&")
    If NextMark = 0 Or (ampersand > 0 And ampersand < NextMark) Then NextMark = ampersand
    If NextMark = 0 Then NextMark = Len(markup) + 1
End Function

Private Function Character(escaped As String) As String
    Select Case escaped
        Case "&amp;": Character = "&"
        Case "&lt;": Character = "<"
        Case "&gt;": Character = ">"
        Case Else: Character = escaped
    End Select
End Function

Private Sub AddRun(runs As Variant, text As String, marks As Long)
    Dim last As Long
    If text = "" Then Exit Sub
    last = UBound(runs)
    If last >= 0 Then
        If runs(last)(1) = marks Then
            runs(last) = Array(runs(last)(0) & text, marks)
            Exit Sub
        End If
    End If
    ReDim Preserve runs(last + 1)
    runs(last + 1) = Array(text, marks)
End Sub

' Texts in Word

' The runs of a markup as Word shows them. A line feed becomes `lineBreak`: vbCr starts a paragraph,
' vbVerticalTab a line.
Public Function TessaronWordRuns(markup As String, lineBreak As String) As Variant
    Dim runs As Variant, i As Long
    runs = TessaronRunsOfMarkup(markup)
    For i = LBound(runs) To UBound(runs)
        runs(i) = Array(WithLineBreaks(Storable(CStr(runs(i)(0)), False), lineBreak), runs(i)(1))
    Next i
    TessaronWordRuns = runs
End Function

' Whether a text of the document equals a text of the application. Characters that Word stores in
' another way do not count as an edit by hand.
Public Function TessaronSameText(shown As String, formatted As String) As Boolean
    TessaronSameText = Comparable(shown) = Comparable(formatted)
End Function

Private Function Comparable(text As String) As String
    Comparable = TessaronSendableText(text)
    Comparable = Replace(Comparable, ChrW(30), ChrW(&H2011)) ' Word's non-breaking hyphen
    Comparable = Replace(Comparable, ChrW(31), ChrW(&HAD)) ' Word's optional hyphen
End Function

' A text of the document as it can be sent.
Public Function TessaronSendableText(text As String) As String
    TessaronSendableText = WithLineBreaks(Storable(text, False), vbLf)
End Function

' Whether a field contains only text. Writing would lose a picture (1), a note's reference (2), a
' comment's anchor (5), a table cell (7), a paragraph (13) or a field (19).
Public Function TessaronIsOnlyText(shown As String) As Boolean
    Dim code As Variant
    For Each code In Array(1, 2, 5, 7, 13, 19)
        If InStr(shown, ChrW(code)) > 0 Then Exit Function
    Next code
    TessaronIsOnlyText = True
End Function

Private Function WithLineBreaks(text As String, lineBreak As String) As String
    Dim code As Variant
    WithLineBreaks = Replace(text, vbCr & vbLf, vbLf)
    For Each code In Array(10, 11, 12, 13)
        If ChrW(code) <> lineBreak Then
            WithLineBreaks = Replace(WithLineBreaks, ChrW(code), lineBreak)
        End If
    Next code
End Function

' Word's files cannot store control characters, unpaired surrogates, U+FFFE and U+FFFF. They become JSON
' escape sequences or U+FFFD.
Private Function Storable(text As String, asJson As Boolean) As String
    Dim i As Long, unit As Long, start As Long, bad As Boolean
    start = 1
    For i = 1 To Len(text)
        unit = AscW(Mid(text, i, 1)) And &HFFFF&
        bad = False
        If unit < 32 Then
            ' 9 to 13 are tab and line breaks, 30 and 31 are Word's hyphens.
            bad = unit < 9 Or (unit > 13 And unit < 30)
        ElseIf unit >= &HD800& Then
            bad = IsBadUnit(text, i, unit)
        End If
        If bad Then
            Storable = Storable & Mid(text, start, i - start) & Replacement(unit, asJson)
            start = i + 1
        End If
    Next i
    Storable = Storable & Mid(text, start)
End Function

Private Function IsBadUnit(text As String, i As Long, unit As Long) As Boolean
    If unit <= &HDBFF& Then
        IsBadUnit = Not IsBetween(text, i + 1, &HDC00&, &HDFFF&)
    ElseIf unit <= &HDFFF& Then
        IsBadUnit = True
        If i > 1 Then IsBadUnit = Not IsBetween(text, i - 1, &HD800&, &HDBFF&)
    Else
        IsBadUnit = unit >= &HFFFE&
    End If
End Function

Private Function IsBetween(text As String, i As Long, first As Long, last As Long) As Boolean
    Dim unit As Long
    If i > Len(text) Then Exit Function
    unit = AscW(Mid(text, i, 1)) And &HFFFF&
    IsBetween = unit >= first And unit <= last
End Function

Private Function Replacement(unit As Long, asJson As Boolean) As String
    Replacement = ChrW(&HFFFD)
    If asJson Then Replacement = "\u" & Right("000" & Hex(unit), 4)
End Function

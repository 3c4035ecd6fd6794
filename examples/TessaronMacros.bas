Attribute VB_Name = "TessaronMacros"
Option Explicit

' The macros for the user. This module alone has no "Option Private Module", so that Word's list of
' macros shows these and nothing else. Give each a button or a key, TessaronCancel above all.

' Inserts a citation at the cursor. If the cursor is inside a citation, edits that one.
Public Sub TessaronInsertCitation()
    TessaronDo "InsertCitation"
End Sub

Public Sub TessaronEditCitation()
    TessaronDo "EditCitation"
End Sub

' Formats all citations and the bibliography.
Public Sub TessaronRefreshAll()
    TessaronDo "RefreshAll"
End Sub

Public Sub TessaronChooseStyle()
    TessaronDo "ChooseStyle"
End Sub

Public Sub TessaronInsertBibliography()
    TessaronDo "InsertBibliography"
End Sub

' Merges the selected citations, which must be adjacent.
Public Sub TessaronMergeCitations()
    TessaronDo "MergeCitations"
End Sub

' Restores the style's text of a citation that was edited by hand.
Public Sub TessaronUndoManualEdit()
    TessaronDo "UndoManualEdit"
End Sub

' Cancels the running macro.
Public Sub TessaronCancel()
    TessaronCancelMacro
End Sub

' Switches the trace of the requests on or off, and shows the path of its file.
Public Sub TessaronTrace()
    TessaronSwitchTrace
End Sub

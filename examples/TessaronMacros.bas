Attribute VB_Name = "TessaronMacros"
Option Explicit

' The macros for the user. This module alone has no "Option Private Module", so that Word's list of
' macros shows these and nothing else. Give each a button or a key, TessaronCancel above all.

' In a citation: edits it. Elsewhere: inserts one, beside a citation if the cursor is beside it.
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

' Makes one citation of the selected ones, which must stand side by side.
Public Sub TessaronMergeCitations()
    TessaronDo "MergeCitations"
End Sub

' Brings back the style's text of a citation that was edited by hand.
Public Sub TessaronUndoManualEdit()
    TessaronDo "UndoManualEdit"
End Sub

' Ends the wait of the macro that is running.
Public Sub TessaronCancel()
    TessaronCancelMacro
End Sub

' Switches the trace of the requests on or off, and shows where it is.
Public Sub TessaronTrace()
    TessaronSwitchTrace
End Sub

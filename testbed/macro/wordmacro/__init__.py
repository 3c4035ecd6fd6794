"""The shell stand-in of the Word macro: it works on .docx files and speaks to the bridge."""

"""The stand-in for the macro: a command-line program that changes .docx files and runs the bridge."""

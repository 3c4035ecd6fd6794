"""The macro's stand-in for the shell: it changes .docx files and runs the bridge."""

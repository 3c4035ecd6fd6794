-- ONLY MACOS CAN RUN THIS. It has not been run by us. TessaronBridge.sh, which does the work, has.
--
-- Word's AppleScriptTask runs this handler outside Word's sandbox. README.md has the installation.

-- Returns the output of TessaronBridge.sh for the request.
on callBridge(request)
	try
		set libraryFolder to POSIX path of (path to library folder from user domain)
		set shellScript to libraryFolder & "Application Scripts/com.microsoft.Word/TessaronBridge.sh"
		return do shell script "/bin/sh " & quoted form of shellScript & " " & quoted form of request
	on error message
		return "error: " & message
	end try
end callBridge

-- ONLY MACOS CAN RUN THIS. It has not been run by us.
--
-- Word runs these handlers for a macro (AppleScriptTask), outside Word's sandbox, when they are here:
--   mkdir -p ~/Library/"Application Scripts"/com.microsoft.Word
--   osacompile -o ~/Library/"Application Scripts"/com.microsoft.Word/TessaronBridge.scpt TessaronBridge.applescript

-- The one program that can be started from here. A macro must not name it: the macros of every
-- document can call these handlers.
property bridge : "/Applications/Your Product.app/Contents/Helpers/tessaron-word-bridge"

-- request: the command, a line feed, the folder. Returns the process id at once; the bridge goes on.
on startBridge(request)
	set {commandName, folderPath} to paragraphs of request
	return do shell script quoted form of bridge & " " & quoted form of commandName & " " & quoted form of folderPath & " </dev/null >/dev/null 2>&1 & echo $!"
end startBridge

-- Returns "true" or "false". The name is looked at because ids are given again.
on bridgeRuns(processId)
	try
		do shell script "/bin/ps -o comm= -p " & quoted form of processId & " | /usr/bin/grep -q tessaron-word-bridge"
		return "true"
	on error
		return "false"
	end try
end bridgeRuns

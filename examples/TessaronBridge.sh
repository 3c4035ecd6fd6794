#!/bin/sh
# Starts, checks and ends the bridge, outside Word's sandbox. TessaronBridge.applescript runs this
# script for the macro. The only argument is a request: the action and its arguments, one per line.
#
#   start COMMAND FOLDER TRACE   starts the bridge and prints its process id; TRACE is empty,
#                                "requests" or "bodies"
#   running ID FOLDER            prints whether that bridge is running: true or false
#   end ID FOLDER                ends that bridge
#   trace-file                   prints the path of the trace
#
# On failure it prints "error: " and a message for the user. The exit status is always 0, because
# AppleScript returns the output only after success.
#
# The macros of every document can call this script. Therefore it starts only the bridge, only in Word's
# folders, and ends no other process.

# Put the path of your bridge here.
BRIDGE="/Applications/Your Product.app/Contents/Helpers/tessaron-word-bridge"
# Word's own temporary folder, in which both Word and the bridge may write.
TEMPORARY="$HOME/Library/Containers/com.microsoft.Word/Data/tmp"
TRACE_FILE="$HOME/Library/Logs/tessaron-word-bridge.log"

fail() {
    printf 'error: %s\n' "$1"
    exit 0
}

# Sets `folder` to the resolved path of $1, which must be a run's folder below TEMPORARY.
find_folder() {
    base=$(cd "$TEMPORARY" 2>/dev/null && pwd -P) || fail "The folder $TEMPORARY does not exist."
    case $1 in /*) ;; *) fail "The folder \"$1\" is not an absolute path." ;; esac
    folder=$(cd "$1" 2>/dev/null && pwd -P) || fail "The folder $1 does not exist."
    case $folder in
    "$base"/*) ;;
    *) fail "The folder $1 is not in Word's temporary folder." ;;
    esac
    case ${folder##*/} in
    tessaron-*) ;;
    *) fail "The name of the folder $1 does not begin with \"tessaron-\"." ;;
    esac
}

# Whether process $1 is a bridge that works in folder $2. The process id alone is not enough, because
# the system reuses ids.
runs() {
    case $1 in '' | *[!0-9]*) return 1 ;; esac
    case $(ps -ww -p "$1" -o command= 2>/dev/null) in
    *"$BRIDGE "*" $2") return 0 ;;
    esac
    return 1
}

# Removes folders that are older than a day. They contain texts of documents, and remain if Word crashes.
remove_old_folders() {
    find "$1" -maxdepth 1 -type d -name 'tessaron-*' -mmin +1440 2>/dev/null |
        while IFS= read -r old; do
            runs "$(cat "$old/bridge-process" 2>/dev/null)" "$old" || rm -rf "$old"
        done
}

# Sets `errors` to the file for the bridge's standard error.
prepare_trace() {
    errors=/dev/null
    case $1 in
    requests) QT_LOGGING_RULES="tessaron.http.debug=true" ;;
    bodies) QT_LOGGING_RULES="tessaron.http.debug=true;tessaron.http.body.debug=true" ;;
    '') return ;;
    *) fail "\"$1\" is not a kind of trace." ;;
    esac
    export QT_LOGGING_RULES
    errors=$TRACE_FILE
    mkdir -p "${TRACE_FILE%/*}" 2>/dev/null
    touch "$TRACE_FILE" 2>/dev/null && chmod 600 "$TRACE_FILE" ||
        fail "The trace cannot be written to $TRACE_FILE."
}

start() {
    [ -f "$BRIDGE" ] || fail "The bridge is not at $BRIDGE. Install it, or correct its path in $0."
    [ -x "$BRIDGE" ] || fail "The bridge at $BRIDGE is not executable."
    case $1 in '' | *[!A-Za-z]*) fail "\"$1\" is not a command of the bridge." ;; esac
    find_folder "$2"
    remove_old_folders "${folder%/*}"
    prepare_trace "$3"
    "$BRIDGE" "$1" "$folder" </dev/null >/dev/null 2>>"$errors" &
    echo $! >"$folder/bridge-process"
    echo $!
}

end() {
    find_folder "$2"
    runs "$1" "$folder" || return 0
    kill "$1"
    for _ in 1 2 3 4 5 6 7 8 9 10; do
        runs "$1" "$folder" || return 0
        sleep 0.1
    done
    kill -KILL "$1"
}

umask 077
unset CDPATH
{
    IFS= read -r action
    IFS= read -r first
    IFS= read -r second
    IFS= read -r third
} <<EOF
$1
EOF
case $action in
start) start "$first" "$second" "$third" ;;
running)
    find_folder "$second"
    if runs "$first" "$folder"; then echo true; else echo false; fi
    ;;
end) end "$first" "$second" ;;
trace-file) printf '%s\n' "$TRACE_FILE" ;;
*) fail "TessaronBridge.sh does not know the request \"$action\". Install the version that belongs to the macro." ;;
esac
exit 0

# The monitor's log as a story: what the spooler called, each frame with its direction, what the monitor
# understood. Peeked bytes are logged again when they are read, so only the fullest look is shown. Wants -F '\t'.
function show(what, text) {
    if (repeats > 0) printf "%12s  %-16s (%d more, with the rest of the document)\n", "", "gWritePort", repeats
    repeats = 0
    printf "%12s  %s %s\n", clock, what, text
}
function flush_read(    text) {
    if (held != "") show("  <-", cut(held))
    held = ""
}
function cut(bytes) {
    gsub(/:/, " ", bytes)
    return length(bytes) > 84 ? substr(bytes, 1, 84) " ..." : bytes
}
$1 !~ / N\/A / {
    split($1, head, " "); clock = head[1]; thread = head[3]; text = $2
    sub(/^ +/, "", text)
    if (text ~ /^[{]CSyncSocket::Send/) direction[thread] = "out"
    else if (text ~ /^[{]CSyncSocket::Receive/) direction[thread] = "in"
    else if (text ~ /: ERROR: /) { flush_read(); show("!", substr(text, 2)) }
    else if (text ~ /^[{}]/) next
    else if (text ~ /^:/ && direction[thread] == "in") {
        if (index(text, held) == 1) held = text
        else if (index(held, text) == 1) next
        else if (substr(held, length(held) - length(text) + 1) != text) held = held text
    } else if (text ~ /^:/) {
        flush_read()
        if (writing && data++) repeats++
        else show("  ->", cut(text))
    } else {
        flush_read()
        writing = text == "gWritePort"
        if (!writing || !data) { if (text != last) show("*", text); last = text }
    }
}
END { flush_read() }

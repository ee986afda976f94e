# Reads lcov's records: the share of each file's lines, then the lines that were never reached. Wants the variable
# root, the folder of the sources with a slash at its end, and -F '[:,]'.
function source_line(file, wanted,    at, line) {
    for (at = 0; at < wanted && (getline line <file) > 0;) ++at
    close(file)
    sub(/^ +/, "", line)
    return line
}
function share(name, covered, lines) {
    printf "%6.2f %%  %5d of %5d  %s\n", 100 * covered / lines, covered, lines, name
}
$1 == "SF" { file = substr($0, 4); name = substr(file, length(root) + 1) }
$1 == "DA" {
    ++lines
    if ($3 > 0) ++covered
    else missed[++misses] = name ":" $2 ": " source_line(file, $2)
}
$1 == "end_of_record" {
    if (lines > 0) share(name, covered, lines)
    allLines += lines; allCovered += covered; lines = covered = 0
}
END {
    share("all", allCovered, allLines)
    for (i = 1; i <= misses; ++i) print missed[i]
}

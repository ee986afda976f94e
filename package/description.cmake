# Read by CPack each time it makes a package.
file(STRINGS ${CPACK_FARLINK_HEADER} commit REGEX "define FARLINK_COMMIT")
string(REGEX REPLACE ".*\"(.*)\"" "\\1" commit "${commit}")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Farlink takes documents to card printers behind a network print server, waits
for its turn in the server's queue, and calls a card printed on the server's
word alone. The package has the CUPS backend \"farlink\", the port monitor, a
command line, and a print server simulator to try things with.
.
Built from commit ${commit}.")

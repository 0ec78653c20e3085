# Prepares the pages for Doxygen. The program that a page shows stands in a comment, which other readers of Markdown do
# not see: they have the link to its file. In the reference such links would lead nowhere, because it has only the pages
# and the headers.
s/^<!-- (\\include .*) -->$/\1/
s/\[([^]]*)\]\((\.\.\/)+(examples|include|python|tests|tools|README|SECURITY)[^)]*\)/\1/g

# For Doxygen: contents after the title, and no link from the project's name to the class.
1s/$/\n\n[TOC]/
/^```/,/^```/!s/\(^\|[ (]\)Veltrano\([ ,.]\|$\)/\1%Veltrano\2/g

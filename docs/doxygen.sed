# Turns the comments of the public headers, which read well as they are, into Doxygen's forms.
/NOLINT/d
s!^/\* ---- .* ---- \*/$!!
# A file's comment, up to its first directive.
1s!^// !/// \\file\n/// !
1s!^/\* !/** \\file\n * !
2,/^#/s!^//!///!
s!@\(YES\|autoreleasepool\)!\\@\1!g  # are no commands
# C's comments before a declaration, and those after a member.
s!^\( *\)/\* !\1/** !
s!\([;,{]\|[A-Z_0-9a-z]\)\( *\) /\* !\1\2 /**< !
s!^\( *[^ /].*\)  // !\1  ///< !
# Doxygen would make one class of those in C++ and Objective-C.
s!^VELTRANO_EXPORT$!/// \\note The name of this class is Veltrano.\n&!
s!^@interface Veltrano : !@interface VeltranoObjC : !

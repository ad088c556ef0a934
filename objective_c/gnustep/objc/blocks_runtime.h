// GNUstep's Foundation includes this file, which the compiler's blocks runtime does not have.
#include <Block.h>

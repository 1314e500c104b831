// GNUstep's headers ask for this name; the compiler's own header has another one.
#include <Block.h>

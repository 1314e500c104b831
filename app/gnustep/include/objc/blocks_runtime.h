// GNUstep's headers include this name; the compiler's own header has another one.
#include <Block.h>

// GNUstep's headers ask for this name when blocks are on; gcc's runtime has none of its own.
#include <Block.h>

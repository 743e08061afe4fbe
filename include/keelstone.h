/* The C interface, for hosts that include it by its short name. */
#include "keelstone/keelstone.h" /* IWYU pragma: export */

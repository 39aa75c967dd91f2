/* Placeholder: this family's declarations are being written. */
#ifndef KU_STR_H
#define KU_STR_H

#include "ku/export.h"

#endif /* KU_STR_H */

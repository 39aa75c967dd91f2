/* Placeholder: this family's declarations are being written. */
#ifndef KU_MINIRESAMPLE_H
#define KU_MINIRESAMPLE_H

#include "ku/export.h"

#endif /* KU_MINIRESAMPLE_H */

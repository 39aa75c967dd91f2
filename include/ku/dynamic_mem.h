/* Placeholder: this family's declarations are being written. */
#ifndef KU_DYNAMIC_MEM_H
#define KU_DYNAMIC_MEM_H

#include "ku/export.h"

#endif /* KU_DYNAMIC_MEM_H */

/* Placeholder: this family's declarations are being written. */
#ifndef KU_MEMBUFFER_H
#define KU_MEMBUFFER_H

#include "ku/export.h"

#endif /* KU_MEMBUFFER_H */

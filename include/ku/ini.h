/* Placeholder: this family's declarations are being written. */
#ifndef KU_INI_H
#define KU_INI_H

#include "ku/export.h"

#endif /* KU_INI_H */

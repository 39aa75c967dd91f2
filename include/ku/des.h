/* Placeholder: this family's declarations are being written. */
#ifndef KU_DES_H
#define KU_DES_H

#include "ku/export.h"

#endif /* KU_DES_H */

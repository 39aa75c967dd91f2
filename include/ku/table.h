/* Placeholder: this family's declarations are being written. */
#ifndef KU_TABLE_H
#define KU_TABLE_H

#include "ku/export.h"

#endif /* KU_TABLE_H */

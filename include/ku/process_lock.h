/* Placeholder: this family's declarations are being written. */
#ifndef KU_PROCESS_LOCK_H
#define KU_PROCESS_LOCK_H

#include "ku/export.h"

#endif /* KU_PROCESS_LOCK_H */

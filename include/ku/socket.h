/* Placeholder: this family's declarations are being written. */
#ifndef KU_SOCKET_H
#define KU_SOCKET_H

#include "ku/export.h"

#endif /* KU_SOCKET_H */

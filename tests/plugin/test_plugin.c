/* One source for every test plug-in; the build picks the flaw with a macro:
 *   PLUGIN_NAME="..."  what ku_module_name gives (unless NO_NAME_SYMBOL)
 *   NO_NAME_SYMBOL     ku_module_name is not defined at all
 *   NULL_NAME          ku_module_name gives null
 *   NO_OPS_SYMBOL      ku_module_ops is not defined at all
 *   NULL_OPS           ku_module_ops gives null */
#include "plugin/test_plugin_ops.h"

#define EXPORT __attribute__((visibility("default")))

static int add(int a, int b)
{
    return a + b;
}

static const struct test_plugin_ops ops = {add, PLUGIN_NAME " ops"};

#ifndef NO_NAME_SYMBOL
EXPORT const char *ku_module_name(void);
EXPORT const char *ku_module_name(void)
{
#ifdef NULL_NAME
    return 0;
#else
    return PLUGIN_NAME;
#endif
}
#endif

#ifndef NO_OPS_SYMBOL
EXPORT const void *ku_module_ops(void);
EXPORT const void *ku_module_ops(void)
{
#ifdef NULL_OPS
    return 0;
#else
    return &ops;
#endif
}
#endif

/* Keeps the table referenced when no ku_module_ops is built. */
EXPORT const struct test_plugin_ops *test_plugin_table(void);
EXPORT const struct test_plugin_ops *test_plugin_table(void)
{
    return &ops;
}

/* A plug-in for the ku plugin tests. KU_TEST_MODULE_NAME is the name it
 * answers with; KU_TEST_NO_OPS leaves it without an operations table. */
#include <stddef.h>

struct test_ops {
    int (*answer)(void);
};

#ifndef KU_TEST_NO_OPS
static int answer(void)
{
    return 42;
}

static const struct test_ops ops = {answer};
#endif

const char *ku_module_name(void)
{
    return KU_TEST_MODULE_NAME;
}

const void *ku_module_ops(void)
{
#ifdef KU_TEST_NO_OPS
    return NULL;
#else
    return &ops;
#endif
}

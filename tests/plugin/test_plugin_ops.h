/* The table that the test plug-ins hand out and the plug-in test reads. */
#ifndef KU_TEST_PLUGIN_OPS_H
#define KU_TEST_PLUGIN_OPS_H

struct test_plugin_ops {
    int (*add)(int a, int b);
    const char *tag;
};

#endif

/* A plug-in for `ku plugin`: it gives the name KU_TEST_MODULE_NAME and the
 * operations table KU_TEST_OPS (0 for none). */
const int ku_test_ops = 42;

const char *ku_module_name(void)
{
    return KU_TEST_MODULE_NAME;
}

const void *ku_module_ops(void)
{
    return KU_TEST_OPS;
}

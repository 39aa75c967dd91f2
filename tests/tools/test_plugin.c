/* A plug-in named KU_TEST_MODULE_NAME, operations KU_TEST_OPS (0: none). */
const int ku_test_ops = 42;

const char *ku_module_name(void)
{
    return KU_TEST_MODULE_NAME;
}

const void *ku_module_ops(void)
{
    return KU_TEST_OPS;
}

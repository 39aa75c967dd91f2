/* A test plug-in that calls itself PLUGIN_NAME; a macro FLAW_<name> gives
 * it a flaw: wrong answers "other", nullname and nullops give null, noname
 * and noops lack ku_module_name or ku_module_ops. */
#ifndef FLAW_noname
const char *ku_module_name(void)
{
#if defined(FLAW_nullname)
    return 0;
#elif defined(FLAW_wrong)
    return "other";
#else
    return PLUGIN_NAME;
#endif
}
#endif

#ifndef FLAW_noops
const void *ku_module_ops(void)
{
#ifdef FLAW_nullops
    return 0;
#else
    return PLUGIN_NAME " ops";
#endif
}
#endif

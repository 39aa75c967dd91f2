/* A test plug-in that calls itself PLUGIN_NAME; a macro FLAW_<name> gives
 * it a flaw: wrong answers "other", nullname and nullops give null, noname
 * and noops lack ku_module_name or ku_module_ops. */
#if defined(FLAW_nullname)
#define MODULE_NAME 0
#elif defined(FLAW_wrong)
#define MODULE_NAME "other"
#else
#define MODULE_NAME PLUGIN_NAME
#endif
#ifdef FLAW_nullops
#define MODULE_OPS 0
#else
#define MODULE_OPS PLUGIN_NAME " ops"
#endif

#ifndef FLAW_noname
const char *ku_module_name(void) { return MODULE_NAME; }
#endif
#ifndef FLAW_noops
const void *ku_module_ops(void) { return MODULE_OPS; }
#endif

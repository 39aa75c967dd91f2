// The subcommands of the ku tool, one per family. Each is compiled in only
// when the library's headers declare what it needs (see CMakeLists.txt), so
// the tool never ships a command that cannot work.
#pragma once

namespace ku_tool {

int run_log(int argc, char **argv);
int run_clock(int argc, char **argv);
int run_str(int argc, char **argv);
int run_b64(int argc, char **argv);
int run_hex(int argc, char **argv);
int run_des(int argc, char **argv);
int run_json(int argc, char **argv);
int run_table(int argc, char **argv);
int run_ini(int argc, char **argv);
int run_fetch(int argc, char **argv);
int run_resample(int argc, char **argv);
int run_net(int argc, char **argv);
int run_plugin(int argc, char **argv);
int run_mdns(int argc, char **argv);
int run_lock(int argc, char **argv);
int run_sock(int argc, char **argv);

}  // namespace ku_tool

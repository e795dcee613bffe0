# Every warning of this project is an error; link this target to whatever is ours.
add_library(orvex_strict INTERFACE)
target_compile_options(orvex_strict INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wsign-conversion -Werror)

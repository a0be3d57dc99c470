# Its RM_ functions must be found before those of librmapi.so, so the program exports them.
add_executable(cycle_bench cycle_bench.cpp)
target_link_libraries(cycle_bench PRIVATE project_options hbadiscovery rmapi Threads::Threads)
target_link_options(cycle_bench PRIVATE -rdynamic)

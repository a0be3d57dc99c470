# Its RM_ functions must be found before those of librmapi.so, so the program exports them.
find_package(nlohmann_json REQUIRED)
add_executable(oob_bench oob_bench.cpp)
target_link_libraries(oob_bench PRIVATE project_options hbadiscovery rmapi_open rmapi nlohmann_json::nlohmann_json
                                        Threads::Threads ${CMAKE_DL_LIBS})
target_link_options(oob_bench PRIVATE -rdynamic)
target_compile_definitions(oob_bench PRIVATE HBADISC_AGENT="$<TARGET_FILE:hbadisc-agent>")
add_dependencies(oob_bench hbadisc-agent)

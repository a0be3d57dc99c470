add_executable(sysfs_bench sysfs_bench.cpp)
target_link_libraries(sysfs_bench PRIVATE project_options)
add_dependencies(sysfs_bench hbadisc)
target_compile_definitions(sysfs_bench PRIVATE HBADISC_TOOL="$<TARGET_FILE:hbadisc>")

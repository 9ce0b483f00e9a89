# The child's descriptor clean-up is measured directly, at bounds beyond this
# machine's descriptor limit, so its source is compiled into the benchmark.
target_sources(${exe} PRIVATE ${PROJECT_SOURCE_DIR}/src/process/child_descriptors.cpp)
target_include_directories(${exe} PRIVATE ${PROJECT_SOURCE_DIR}/src)

# vek::double, the framework's link-time double for unit tests. It is compiled with the tests that link it: with their
# googletest, their options, their sanitizers.
find_package(GTest REQUIRED)
set(vek_double_sources client.cpp clock_random.cpp crypto.cpp log.cpp proc.cpp rpc.cpp world.cpp)
list(TRANSFORM vek_double_sources PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
add_library(vek_double STATIC EXCLUDE_FROM_ALL ${vek_double_sources})
set_target_properties(vek_double PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
target_include_directories(vek_double PUBLIC ${CMAKE_CURRENT_LIST_DIR}/..)
target_link_libraries(vek_double PUBLIC vek::vek_headers vek::vek_pure GTest::gtest)
add_library(vek::double ALIAS vek_double)

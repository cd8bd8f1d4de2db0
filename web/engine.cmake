# The engine module of the web app: the core and the C API of web/engine as an ES module for a
# module Worker. Included by the top CMakeLists.txt in the WebAssembly build only.
file(GLOB ZORVEX_ENGINE_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/web/engine/*.cpp)
add_executable(zorvex_engine ${ZORVEX_ENGINE_SOURCES})
target_link_libraries(zorvex_engine PRIVATE zorvex_core)
target_link_options(zorvex_engine PRIVATE -O3 -msimd128 -fwasm-exceptions
  -sMODULARIZE=1 -sEXPORT_ES6=1 -sEXPORT_NAME=createZorvexEngine -sENVIRONMENT=web,worker
  -sALLOW_MEMORY_GROWTH=1 -sINITIAL_MEMORY=67108864 -sMAXIMUM_MEMORY=4GB
  -sEXPORTED_FUNCTIONS=_malloc,_free
  -sEXPORTED_RUNTIME_METHODS=UTF8ToString,stringToUTF8,lengthBytesUTF8)
set_target_properties(zorvex_engine PROPERTIES SUFFIX ".mjs"
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/engine)

# The entry points, shared by the libFuzzer executables (fuzz/CMakeLists.txt) and the replay test
# (tests/trust/CMakeLists.txt).
set(TAMLO_FUZZ_DIR ${CMAKE_CURRENT_LIST_DIR})
set(TAMLO_FUZZ_ENTRY_SOURCES
    ${TAMLO_FUZZ_DIR}/backendrepliesfuzz.cpp
    ${TAMLO_FUZZ_DIR}/credentialsfuzz.cpp
    ${TAMLO_FUZZ_DIR}/fuzzenvironment.cpp
    ${TAMLO_FUZZ_DIR}/ollamarepliesfuzz.cpp
    ${TAMLO_FUZZ_DIR}/storefilesfuzz.cpp
    ${TAMLO_FUZZ_DIR}/urlroutingfuzz.cpp
)
set(TAMLO_FUZZ_ENTRY_LIBS tamlo_account tamlo_ai tamlo_core Qt6::Network)

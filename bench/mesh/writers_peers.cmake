# assimp, called by writers_bench.cpp. meshio and VTK are called from Python by writers_peers.py.
find_package(assimp CONFIG REQUIRED)
target_link_libraries(mesh_writers_bench PRIVATE assimp::assimp)
target_compile_definitions(mesh_writers_bench PRIVATE SCANSTEPS_PEER_ASSIMP)

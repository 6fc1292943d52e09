// Loading and saving meshes for the command-line tool, by file content and by
// output extension.
#pragma once

#include <string>

#include "LMesh.h"

enum class MeshFormat { Unknown, BinaryStl, AsciiStl, Ply, Native };

const char* FormatName(MeshFormat format);

// What a file holds, judged by its first bytes (and its size for binary STL), not by
// its extension.
MeshFormat DetectFormat(const std::string& path);

// Loads any supported file into an empty mesh, welding corners closer than
// `tolerance` in STL and PLY input. On failure returns false with a one-line reason.
bool LoadMesh(const std::string& path, float tolerance, L_LUMOMESH& mesh, MeshFormat& format, std::string& error);

// Writes binary STL (".stl") or the native file (".lmesh"), scaling coordinates by
// `scale` first. On failure returns false with a one-line reason.
bool SaveMesh(const std::string& path, L_LUMOMESH& mesh, float scale, std::string& error);

#!/usr/bin/env python3
"""Renders an OBJ file with its material file and textures, from two sides, by VTK's importer.

usage: xvfb-run render_model.py MODEL.obj PICTURE.jpg      (Debian: python3-vtk9, xvfb)
"""
import os
import sys

import vtk


def view(model, left, position):
    importer = vtk.vtkOBJImporter()
    importer.SetFileName(model)
    importer.SetFileNameMTL(os.path.splitext(model)[0] + ".mtl")
    importer.SetTexturePath(os.path.dirname(os.path.abspath(model)))
    window.SetSize(1100, 500)
    importer.SetRenderWindow(window)
    renderer = vtk.vtkRenderer()
    renderer.SetViewport(left, 0, left + 0.5, 1)
    renderer.SetBackground(1, 1, 1)
    window.AddRenderer(renderer)
    others = [r for r in window.GetRenderers() if r is not renderer]
    for other in others:  # the importer adds to the first renderer it finds
        window.RemoveRenderer(other)
    importer.Update()
    for other in others:
        window.AddRenderer(other)
    actors = list(renderer.GetActors())
    print(f"{len(actors)} parts, {sum(a.GetMapper().GetInput().GetNumberOfCells() for a in actors)} triangles, "
          f"{sum(a.GetTexture() is not None for a in actors)} textures")
    camera = renderer.GetActiveCamera()
    camera.SetPosition(*position)
    camera.SetViewUp(0, 0, 1)
    renderer.ResetCamera()
    camera.Zoom(1.35)


window = vtk.vtkRenderWindow()
window.SetOffScreenRendering(1)
window.SetMultiSamples(8)
view(sys.argv[1], 0, (0, -1, 9))
view(sys.argv[1], 0.5, (-5, -7, 3))
window.Render()
grab = vtk.vtkWindowToImageFilter()
grab.SetInput(window)
grab.ReadFrontBufferOff()
writer = vtk.vtkJPEGWriter()
writer.SetQuality(85)
writer.SetFileName(sys.argv[2])
writer.SetInputConnection(grab.GetOutputPort())
writer.Write()

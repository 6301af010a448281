// What a simulator prints and writes: the log and the frames.
#include <cstdio>
#include <string>

#include "Markers/Markers.h"
#include "SkeletonDynamics/skSystem.h"
#include "output/mlVTKWrtier.h"
#include "platform/messages.h"
#include "simulatorInterface/coupledLBM_sim3D.h"

namespace drelt {

void coupledLBM_sim3D::log() {
    inform("##System Info##\n");
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        simParams& param = *params[i];
        const mlUnitScale scale = param.computeUnitScale();
        const MLFluidParam& grid = *lbmvec[i]->param;
        inform("time step: %fs   space resolution:%f m \n", param.get_tp(), param.dx);
        inform("PML Width: %d \n", param.pml_width);
        inform("|  u0k:       %f    |  u0p:     %f m/s    |   l0p: %f m   | rou0p  %f |\n",
               scale.u0k, scale.u0px, scale.l0p, scale.rou0p);
        inform("|  v0k:       %f    |  v0p:     %f m/s    |\n", scale.v0k, scale.v0p);
        inform("Reynolds number :  %f \n", scale.Re);
        inform("##Fluid Info##\n");
        inform("start (%f,%f,%f)   width %.4f height %.4f depth %.4f \n", grid.startx, grid.starty,
               grid.startz, grid.width, grid.height, grid.depth);
        inform("samples  %d %d %d \n", grid.samples_x, grid.samples_y, grid.samples_z);
    }
    std::fflush(stdout);
}

void coupledLBM_sim3D::saveScene(int frame, int save_flags) {
    requireSolver("saveScene");
    bringToHost();
    char stem[256];
    if ((save_flags & BODY) != 0) {
        std::snprintf(stem, sizeof stem, "vis_object_%05d", frame);
        saveObjectsData(stem);
    }
    if ((save_flags & FLUID) != 0) {
        std::snprintf(stem, sizeof stem, "vis_fluid%05d", frame);
        saveFluidData(stem);
    }
}

void coupledLBM_sim3D::saveFluidData(const std::string& fluid_name) {
    requireSolver("saveFluidData");
    bringOriginsToHost();
    bringToHost();
    for (std::size_t i = 0; i < lbmvec.size(); ++i) {
        const std::string path = mainDataFolderPath + fluidFolderName + "/" + std::to_string(i) +
                                 "_" + fluid_name + ".vtk";
        mlVTKWrtier::writeFluid(*lbmvec[i], params[i]->computeUnitScale(), path, world->getFrame());
    }
}

void coupledLBM_sim3D::saveObjectsData(const std::string& object_name) {
    requireSolver("saveObjectsData");
    bringToHost();
    const std::string folder = mainDataFolderPath + objectsFolderName + "/";
    for (int s = 0; s < world->getNumSkeletons(); ++s) {
        const std::shared_ptr<skSystem> body = world->getSkeleton(s);
        SkeletalMesh& mesh = *body->description()->mesh;
        const std::string stem = std::to_string(s) + "_" + object_name;
        const auto path = [&](const std::string& prefix) {
            return std::string(folder).append(prefix).append(stem).append(".vtk");
        };
        if (body->useGpuPath()) mesh.update(true, true);
        for (std::size_t j = 0; j < mesh.meshes.size(); ++j) {
            mlVTKWrtier::writeObject(mesh.meshes[j]->data_cpu, path(std::to_string(j)));
        }
        mlVTKWrtier::writeMarkers(body->getMarkers()->data_cpu, path("markers_"));
    }
}

}  // namespace drelt

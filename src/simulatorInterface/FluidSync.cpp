// Copies of a domain's state between the host record and the device.
#include <cstdint>

#include "cslbm/mlsolver/mlLattice.h"
#include "platform/check.h"
#include "simulatorInterface/FluidHelper.h"

namespace drelt::FluidHelper {
namespace {

template <class T>
void upload(T* device, const T* host, std::int64_t count, T** deviceField) {
    checkCudaErrors(cudaMemcpy(device, host, count * sizeof(T), cudaMemcpyHostToDevice));
    checkCudaErrors(cudaMemcpy(deviceField, &device, sizeof(device), cudaMemcpyHostToDevice));
}

template <class T>
void download(T* host, const T* device, std::int64_t count) {
    checkCudaErrors(cudaMemcpy(host, device, count * sizeof(T), cudaMemcpyDeviceToHost));
}

}  // namespace

void syncToDevice(mlSinglePhaseSolverNew& solver, int i) {
    const int gpuDeviceId = solver.gpuDeviceId;
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    const mlFlow& host = *solver.lbmvec[i];
    if (ProductionDomain* const domain = solver.fused(i)) {
        mlFlow given = host;
        if (solver.hostPopulations[i] != HostPopulations::Current) given.f = nullptr;
        domain->upload(given);
        return;
    }
    mlFlow* const device = solver.lbm_dev_gpu[i];
    upload(solver.ux_dev_vec[i], host.ux, host.count, &device->ux);
    upload(solver.uy_dev_vec[i], host.uy, host.count, &device->uy);
    upload(solver.uz_dev_vec[i], host.uz, host.count, &device->uz);
    upload(solver.flag_dev_vec[i], host.flag, host.count, &device->flag);
    upload(solver.PML_type_dev_vec[i], host.PML_type, host.count, &device->PML_type);
    upload(solver.f_dev_vec[i], host.f, kDirections * host.count, &device->f);
    upload(solver.fPost_dev_vec[i], host.fPost, kDirections * host.count, &device->fPost);
}

mlFlow originToHost(mlSinglePhaseSolverNew& solver, int i) {
    const int gpuDeviceId = solver.gpuDeviceId;
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    mlFlow device{};
    checkCudaErrors(
        cudaMemcpy(&device, solver.lbm_dev_gpu[i], sizeof(mlFlow), cudaMemcpyDeviceToHost));
    mlFlow& host = *solver.lbmvec[i];
    host.startx = device.startx;
    host.starty = device.starty;
    host.startz = device.startz;
    return device;
}

void syncToHost(mlSinglePhaseSolverNew& solver, int i) {
    const mlFlow device = originToHost(solver, i);
    mlFlow& host = *solver.lbmvec[i];
    if (const ProductionDomain* const domain = solver.fused(i)) {
        mlFlow moments = host;
        moments.f = moments.fPost = moments.Sopt = nullptr;
        domain->materialise(moments);
        solver.hostPopulations[i] = HostPopulations::Stale;
        return;
    }
    download(host.ux, device.ux, host.count);
    download(host.uy, device.uy, host.count);
    download(host.uz, device.uz, host.count);
    download(host.forcex, device.forcex, host.count);
    download(host.forcey, device.forcey, host.count);
    download(host.forcez, device.forcez, host.count);
    download(host.rou, device.rou, host.count);
    download(host.flag, device.flag, host.count);
    download(host.f, device.f, kDirections * host.count);
    download(host.fEqBar, device.fEqBar, kDirections * host.count);
    download(host.fPost, device.fPost, kDirections * host.count);
}

void populationsToHost(mlSinglePhaseSolverNew& solver, int i) {
    const ProductionDomain* const domain = solver.fused(i);
    if (domain == nullptr) return;
    const int gpuDeviceId = solver.gpuDeviceId;
    checkCudaErrors(cudaSetDevice(gpuDeviceId));
    mlFlow& host = *solver.lbmvec[i];
    HostPopulations& held = solver.hostPopulations[i];
    if (held == HostPopulations::AtRest) restPopulations(host);
    if (held == HostPopulations::Stale) {
        mlFlow populations = host;
        populations.rou = nullptr;
        populations.ux = populations.uy = populations.uz = populations.Sopt = nullptr;
        domain->materialise(populations);
    }
    held = HostPopulations::Current;
}

}  // namespace drelt::FluidHelper

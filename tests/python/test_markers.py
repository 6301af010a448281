"""Compares markers with the written fluid file, by another reader and another interpolation."""

import drelt
import numpy as np
import pytest
from support import ZERO
from vtk_files import read_fluid


def trilinear(field, origin, spacing, sizes, place):
    """Interpolates the field (nz, ny, nx, k) at a place between the eight nodes around it."""
    at = (np.asarray(place) - origin) / spacing
    low = np.clip(np.floor(at).astype(int), 0, np.array(sizes) - 2)
    t = at - low
    value = 0.0
    for dz in (0, 1):
        for dy in (0, 1):
            for dx in (0, 1):
                weight = np.prod(np.where((dx, dy, dz), t, 1 - t))
                value = value + weight * field[low[2] + dz, low[1] + dy, low[0] + dx]
    return value


@pytest.mark.parametrize("follow", [False, True])
def test_markers_read_what_the_fluid_file_holds(tmp_path, follow):
    nodes = 24  # per body length
    param = drelt.make_simParams()
    param.setup_mode = drelt.SETUP_MODE.MANUAL
    param.l0p, param.N = 0.2, nodes
    param.u0p, param.u0k = 0.25, 0.1
    param.visp, param.rou0p = 4e-4, 1000.0
    counts = np.array((48, 20, 28))
    # a marker finds its cell from size / count, so make the size nearly a whole number of spacings
    param.width, param.height, param.depth = ((n - 1e-4) * 0.2 / nodes for n in counts)
    simulator = drelt.make_simulator(param, 0)
    name = "swimmer_follow" if follow else "swimmer"
    description = drelt.skeletonFromJson(f"assets/{name}.json", 0)
    body = drelt.make_skDynamics(description, 600, 0, ZERO, ZERO, np.ones(3))
    world = drelt.make_skWorld(ZERO)
    world.addSkeleton(body)
    simulator.attachWorld(world)
    simulator.commitInit()
    for step in range(30):
        body.setCommands(np.full(body.getNumDofs(), 0.5 * np.sin(0.2 * step)))
        simulator.step(drelt.COUPLE_MODE.ONE_WAY)
    simulator.mainDataFolderPath = f"{tmp_path}/"
    simulator.saveScene(0, int(drelt.SAVE_FLAG.BODY) | int(drelt.SAVE_FLAG.FLUID))
    sizes, origin, spacing, arrays = read_fluid(tmp_path / "Fluid" / "0_vis_fluid00000.vtk")
    assert tuple(sizes) == tuple(counts)

    markers = body.getMarkers()
    places = np.array([np.ravel(p) for p in markers.getMarkersPos()])
    assert 3 <= len(places) <= 6
    densities = [trilinear(arrays["density"], origin, spacing, sizes, p)[0] for p in places]
    assert np.ptp(densities) > 1e-5, "the moving body must leave its mark on the fluid"
    # the file gives origin and spacing to six digits
    assert markers.getMarkersPressure() == pytest.approx(densities, abs=1e-5)
    # markers give the momentum in the grid's frame, the file gives the velocity in the inertial frame
    if not follow:
        momenta = [trilinear(arrays["cell_velocity"], origin, spacing, sizes, p) for p in places]
        found = np.array([np.ravel(v) for v in markers.getMarkersVel()])
        assert found == pytest.approx(np.array(momenta), abs=1e-5)

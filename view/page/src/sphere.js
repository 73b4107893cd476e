// The panorama as a sphere to look around in: a picture, or a movie that plays.
import { EquirectangularAdapter, Viewer } from "@photo-sphere-viewer/core";
import { EquirectangularVideoAdapter } from "@photo-sphere-viewer/equirectangular-video-adapter";
import { VideoPlugin } from "@photo-sphere-viewer/video-plugin";
import "@photo-sphere-viewer/core/index.css";
import "@photo-sphere-viewer/video-plugin/index.css";
import "../app.css";
import { byId } from "./dom.js";

const container = byId("sphere", HTMLDivElement);

/** @type {Viewer|null} */
let viewer = null;
let kind = "";
let shown = "";

const common = {
    container,
    loadingTxt: "",
    defaultZoomLvl: 20,
    moveInertia: false,
    keyboard: false,
    fisheye: false,
    lang: { zoom: "Zoom", zoomOut: "Farther", zoomIn: "Nearer", fullscreen: "Full screen", move: "Move" },
};

/** @param {Viewer} made */
function becomeReady(made) {
    return new Promise((resolve, reject) => {
        made.addEventListener("ready", () => resolve(undefined), { once: true });
        made.addEventListener("panorama-error", ({ error }) => reject(error), { once: true });
    });
}

function clear() {
    viewer?.destroy();
    viewer = null;
    kind = "";
    if (shown.startsWith("blob:")) {
        URL.revokeObjectURL(shown);
    }
    shown = "";
}

/** @param {string} address */
async function beginPicture(address) {
    clear();
    kind = "picture";
    viewer = new Viewer({
        ...common,
        adapter: EquirectangularAdapter.withConfig({ useXmpData: false }),
        panorama: address,
        navbar: ["zoom", "move", "fullscreen"],
    });
    await becomeReady(viewer);
}

/**
 * Shows a picture; the look stays where it is when there is a picture already.
 * @param {string} address
 */
export async function showPicture(address) {
    const before = shown;
    shown = address;
    if (kind === "picture" && viewer) {
        await viewer.setPanorama(address, { transition: false, showLoader: false });
    } else {
        shown = "";
        await beginPicture(address);
        shown = address;
    }
    if (before.startsWith("blob:")) {
        URL.revokeObjectURL(before);
    }
    container.dataset.shown = "picture";
}

/** @param {string} address */
export async function showMovie(address) {
    clear();
    kind = "movie";
    viewer = new Viewer({
        ...common,
        adapter: EquirectangularVideoAdapter.withConfig({ autoplay: false, muted: false }),
        panorama: { source: address },
        plugins: [VideoPlugin.withConfig({ progressbar: true, bigbutton: true })],
        navbar: ["videoPlay", "videoVolume", "videoTime", "zoom", "move", "fullscreen"],
    });
    await becomeReady(viewer);
    container.dataset.shown = "movie";
}

export function showNothing() {
    clear();
    container.dataset.shown = "";
}

// Keys are the sphere's while it has the focus, and nobody else's.
container.addEventListener("focusin", () => viewer?.startKeyboardControl());
container.addEventListener("focusout", () => viewer?.stopKeyboardControl());

/** Looks straight ahead again. */
export function lookAhead() {
    viewer?.rotate({ yaw: 0, pitch: 0 });
}

/**
 * Hands drags to `turn`, in degrees of the sphere, instead of looking around.
 * @param {((right: number, down: number, rolls: boolean) => void)|null} turn
 */
export function takeDrags(turn) {
    viewer?.setOption("mousemove", turn === null);
    container.style.cursor = turn ? "grab" : "";
    dragged = turn;
}

/** @type {((right: number, down: number, rolls: boolean) => void)|null} */
let dragged = null;

container.addEventListener("pointermove", (event) => {
    if (dragged && viewer && event.buttons === 1) {
        const degrees = viewer.state.vFov / Math.max(1, container.clientHeight);
        dragged(event.movementX * degrees, event.movementY * degrees, event.shiftKey);
    }
});

/** Where the middle of the view looks, and how wide: for whoever measures. */
export const view = () =>
    viewer && { ...viewer.getPosition(), hFov: viewer.state.hFov, vFov: viewer.state.vFov };

/** @param {{yaw: number, pitch: number}} position radians */
export function look(position) {
    viewer?.rotate(position);
}

export const video = () => /** @type {any} */ (viewer?.getPlugin(VideoPlugin))?.video ?? null;

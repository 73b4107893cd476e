// The panorama as a sphere to look around in: a picture, or a movie that plays.
import { Cache, EquirectangularAdapter, Viewer } from "@photo-sphere-viewer/core";
import { EquirectangularVideoAdapter } from "@photo-sphere-viewer/equirectangular-video-adapter";
import { VideoPlugin } from "@photo-sphere-viewer/video-plugin";
import "@photo-sphere-viewer/core/index.css";
import "@photo-sphere-viewer/video-plugin/index.css";
import "../app.css";
import { byId, make, Told } from "./dom.js";

// It would keep each preview, and the old picture of a file that has been replaced.
Cache.enabled = false;

const container = byId("sphere", HTMLDivElement);

/** @type {Viewer|null} */
let viewer = null;
/** @type {"picture"|"movie"|""} */
let kind = "";
let shown = "";
/** Ends the waiting for a first picture that is not wanted any more. */
let giveUp = () => {};

const common = {
    loadingTxt: "",
    defaultZoomLvl: 20,
    moveInertia: false,
    keyboard: false,
    fisheye: false,
    lang: { zoom: "Zoom", zoomOut: "Farther", zoomIn: "Nearer", fullscreen: "Full screen", move: "Move" },
};

/** @param {Omit<import("@photo-sphere-viewer/core").ViewerConfig, "container">} config */
function begin(config) {
    if (!document.createElement("canvas").getContext("webgl2")) {
        throw new Told("This browser draws no panoramas: it has no WebGL 2, or it is turned off");
    }
    const place = make("div", { className: "viewer" });
    container.append(place);
    viewer = new Viewer({ ...common, ...config, container: place, mousemove: dragged === null });
    return viewer;
}

const damaged = () => new Told("The picture cannot be shown; it may be damaged");

/**
 * Whether the first picture is there; not when something else is to be shown before it is.
 * @param {Viewer} made
 * @returns {Promise<boolean>}
 */
function becomeReady(made) {
    return new Promise((resolve, reject) => {
        giveUp = () => resolve(false);
        made.addEventListener("ready", () => resolve(true), { once: true });
        made.addEventListener("panorama-error", () => reject(damaged()),
            { once: true });
    });
}

function clear() {
    if (viewer) {
        const old = viewer;
        old.container.parentElement?.remove();
        // One that were destroyed while it loads would begin to draw when its picture comes.
        Promise.resolve(old.state.loadingPromise).catch(() => {}).then(() => old.destroy());
    }
    giveUp();
    viewer = null;
    kind = "";
    forget(shown);
    shown = "";
    container.dataset.shown = "";
}

/** @param {string} address */
function forget(address) {
    if (address.startsWith("blob:")) {
        URL.revokeObjectURL(address);
    }
}

/** @param {string} address */
async function beginPicture(address) {
    clear();
    const made = begin({
        adapter: EquirectangularAdapter.withConfig({ useXmpData: false }),
        panorama: address,
        navbar: ["zoom", "move", "fullscreen"],
    });
    kind = "picture";
    shown = address;
    return becomeReady(made);
}

/**
 * Shows another picture where one is: the look stays where it is.
 * @param {Viewer} present
 * @param {string} address
 */
async function replacePicture(present, address) {
    const before = shown;
    shown = address;
    try {
        return await present.setPanorama(address, { transition: false, showLoader: false });
    } catch {
        throw damaged();
    } finally {
        forget(before);
    }
}

/**
 * Whether it is shown; not when something else was wanted in the meantime.
 * @param {string} address
 */
export async function showPicture(address) {
    const isThere = await (kind === "picture" && viewer ? replacePicture(viewer, address) : beginPicture(address));
    if (isThere) {
        container.dataset.shown = "picture";
    }
    return isThere;
}

/**
 * Whether it is shown, as of a picture.
 * @param {string} address
 */
export async function showMovie(address) {
    clear();
    const made = begin({
        adapter: EquirectangularVideoAdapter.withConfig({ autoplay: false, muted: false }),
        panorama: { source: address },
        plugins: [VideoPlugin.withConfig({ progressbar: true, bigbutton: true })],
        navbar: ["videoPlay", "videoVolume", "videoTime", "zoom", "move", "fullscreen"],
    });
    kind = "movie";
    const isThere = await becomeReady(made);
    if (isThere) {
        container.dataset.shown = "movie";
    }
    return isThere;
}

export const showNothing = clear;

// Keys are the sphere's while it has the focus, and nobody else's: the viewer listens to those of the whole window, and
// would take the space bar from buttons and fields.
container.addEventListener("focusin", () => viewer?.startKeyboardControl());
container.addEventListener("focusout", () => viewer?.stopKeyboardControl());
document.addEventListener("keydown", (event) => {
    if (!container.contains(/** @type {Node} */ (event.target))) {
        event.stopPropagation();
    }
});

/** Looks straight ahead again. */
export function lookAhead() {
    viewer?.rotate({ yaw: 0, pitch: 0 });
}

/** @typedef {(right: number, down: number, rolls: boolean) => void} Turn */

/** @type {Turn|null} */
let dragged = null;
/**
 * Where the finger or the mouse that turns was last.
 * @type {{x: number, y: number}|null}
 */
let last = null;

/**
 * Hands drags to `turn`, in degrees of the sphere, instead of looking around.
 * @param {Turn|null} turn
 */
export function takeDrags(turn) {
    dragged = turn;
    last = null;
    viewer?.setOption("mousemove", turn === null);
    container.classList.toggle("turning", turn !== null);
}

container.addEventListener("pointerdown", (event) => {
    if (dragged && event.isPrimary && event.button === 0) {
        last = { x: event.clientX, y: event.clientY };
    }
});
container.addEventListener("pointermove", (event) => {
    if (dragged && viewer && last && event.isPrimary && event.buttons === 1) {
        const degrees = viewer.state.vFov / Math.max(1, container.clientHeight);
        const [right, down] = [event.clientX - last.x, event.clientY - last.y];
        last = { x: event.clientX, y: event.clientY };
        dragged(right * degrees, down * degrees, event.shiftKey);
    }
});

// The viewer leaves fingers that do not look around to the browser, which would scroll.
container.addEventListener("touchmove", (event) => dragged && event.preventDefault(), { passive: false });

/** Where the middle of the view looks, and how wide: for whoever measures. */
export const view = () =>
    viewer && { ...viewer.getPosition(), hFov: viewer.state.hFov, vFov: viewer.state.vFov };

/** @param {{yaw: number, pitch: number}} position radians */
export function look(position) {
    viewer?.rotate(position);
}

/** @returns {HTMLVideoElement|null} */
export const video = () => /** @type {any} */ (viewer?.getPlugin(VideoPlugin))?.video ?? null;

// The folder: its shots in order of capture, with thumbnails.
import { thumbnailAddress } from "./api.js";
import { byId, clock, make } from "./dom.js";

/** @typedef {import("./api.js").Shot} Shot */

const list = byId("list", HTMLUListElement);

/** @type {Map<string, {item: HTMLLIElement, version: string}>} */
const items = new Map();

/** @param {Shot} shot */
function kindOf(shot) {
    const words = { pair: "two lenses", panorama: "panorama", lone: "one lens", other: shot.type };
    return words[shot.kind];
}

/** @param {Shot} shot */
function marksOf(shot) {
    const marks = [make("span", { className: "tag" }, kindOf(shot))];
    if (shot.is360) {
        marks.push(make("span", { className: "tag" }, " 360"));
    }
    if (shot.damaged) {
        marks.push(make("span", { className: "bad" }, " damaged"));
    }
    return marks;
}

/** @param {Shot} shot */
function detailsOf(shot) {
    const pixels = shot.width > 0 ? `${shot.width}×${shot.height}` : "";
    const length = shot.seconds === null ? "" : clock(shot.seconds);
    return [shot.date, pixels, length].filter(Boolean).join(" · ");
}

/**
 * @param {Shot} shot
 * @param {(shot: Shot) => void} choose
 */
function makeItem(shot, choose) {
    const picture = make("img", { alt: "", loading: "lazy", decoding: "async", src: thumbnailAddress(shot) });
    picture.addEventListener("error", () => picture.removeAttribute("src"), { once: true });
    const button = make(
        "button",
        { type: "button", className: "shot" },
        picture,
        make("span", {}, shot.files.join(" + ")),
        make("small", {}, ...marksOf(shot)),
        make("small", {}, detailsOf(shot)),
    );
    if (shot.why) {
        button.append(make("small", { className: "bad" }, shot.why));
    }
    button.addEventListener("click", () => choose(shot));
    return make("li", {}, button);
}

/** @param {Shot} shot */
const versionOf = (shot) => JSON.stringify([shot.version, shot.files, shot.why, shot.damaged, shot.kind]);

/**
 * Shows these shots; what has not changed stays as it is, with its picture and the focus in it.
 * @param {Shot[]} shots
 * @param {(shot: Shot) => void} choose
 */
export function showShots(shots, choose) {
    const gone = new Set(items.keys());
    /** @type {Element|null} */
    let place = list.firstElementChild;
    for (const shot of shots) {
        gone.delete(shot.id);
        const version = versionOf(shot);
        let known = items.get(shot.id);
        if (!known || known.version !== version) {
            const item = makeItem(shot, choose);
            if (known && known.item === place) {
                place = place.nextElementSibling;
            }
            known?.item.remove();
            known = { item, version };
            items.set(shot.id, known);
        }
        if (known.item === place) {
            place = place.nextElementSibling;
        } else {
            list.insertBefore(known.item, place);
        }
    }
    for (const id of gone) {
        items.get(id)?.item.remove();
        items.delete(id);
    }
}

/** @param {string} id */
export function markChosen(id) {
    for (const [other, { item }] of items) {
        item.firstElementChild?.setAttribute("aria-current", String(other === id));
    }
}

// Arrow keys go from shot to shot.
list.addEventListener("keydown", (event) => {
    const item = document.activeElement?.closest("li");
    const back = ["ArrowUp", "ArrowLeft"].includes(event.key);
    const on = ["ArrowDown", "ArrowRight"].includes(event.key);
    const next = back ? item?.previousElementSibling : on ? item?.nextElementSibling : null;
    const button = next?.firstElementChild;
    if (button instanceof HTMLElement) {
        event.preventDefault();
        button.focus();
    }
});

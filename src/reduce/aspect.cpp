#include "reduce/aspect.h"

#include "mesh/measure.h"
#include "mesh/vec.h"
#include "reduce/axes.h"

namespace velmora {

namespace {

constexpr int k_most_candidates = 1000; ///< more are not listed

constexpr std::int32_t k_always_worth = 3; ///< a fan of so few triangles is always worth removing

// The measure of a fan, as it stands or with the vertex moved onto `target`.
struct collapse_rec {
    vtx_h target;
    double worst_cos;       // largest corner cosine of the fan triangles that count
    std::int32_t bad_count; // how many of them have one above the limit
    double max_dist;        // largest distance of the vertex' old place from the moved fan, or the
                            // first one that is too large; the rest is then unknown
    std::int32_t tr_count;  // fan triangles, those with equal corners included
};

struct candidate_list {
    collapse_rec recs[k_most_candidates];
    int count;
};

// Too large for comfort on the stack of a small thread; one removal is under way at a time.
candidate_list candidates;

// With an old place the measure ends as soon as that lies too far off: such a candidate is passed
// over whatever else it has. How far off it lies makes no difference to the order of the sound
// ones: the exchange sort moves those in the same way past any candidate that is further off than
// all of them.
void measure_fan(const vtx_site& site, const float* old_place, collapse_rec* out)
{
    for (const tr_h t : site.fan) {
        const tr_rec& tr = rec(t);
        ++out->tr_count;
        if (tr_has_equal_corners(tr)) continue;
        const max_cos_result sharpest = tr_max_cos(tr, site.params->min_angle_cos);
        if (sharpest.above) ++out->bad_count;
        if (sharpest.cos > out->worst_cos) out->worst_cos = sharpest.cos;
        if (!old_place) continue;
        const double dist = std::fabs(pt_tr_dist(tr, old_place));
        if (dist > out->max_dist) out->max_dist = dist;
        if (dist > site.params->dist_tol) return;
    }
}

// The fan as it stands, or, with a target, as it would be.
collapse_rec eval_collapse(const vtx_site& site, vtx_h target)
{
    collapse_rec out = {target, -1.0, 0, 0.0, 0};
    if (!target) {
        measure_fan(site, nullptr, &out);
        return out;
    }
    float old_place[3];
    vec_copy(rec(site.v).pos, old_place);
    vec_copy(rec(target).pos, rec(site.v).pos);
    measure_fan(site, old_place, &out);
    vec_copy(old_place, rec(site.v).pos);
    return out;
}

void add_candidate(const vtx_site& site, vtx_h target)
{
    if (candidates.count < k_most_candidates)
        candidates.recs[candidates.count++] = eval_collapse(site, target);
}

// The shortest edge of a bad triangle is the one opposite its sharpest corner; when the vertex is
// one of its ends, the other end is the place to go.
void add_sharp_edge(const vtx_site& site, const tr_rec& tr, int i)
{
    const max_cos_result sharpest = tr_max_cos(tr, site.params->min_angle_cos);
    if (!sharpest.above || sharpest.corner == i) return;
    add_candidate(site, tr.vtx[3 - i - sharpest.corner]);
}

void list_candidates(const vtx_site& site, int label)
{
    candidates.count = 0;
    if (site.params->min_angle_cos == k_no_angle_limit) return;
    for (const tr_h t : site.fan) {
        const tr_rec& tr = rec(t);
        const int i = tr_vtx_index(site.v, tr);
        if (i < 0) continue;
        if (label == k_all_one_axis) {
            add_candidate(site, tr.vtx[next3(i)]);
            add_candidate(site, tr.vtx[prev3(i)]);
        } else if (label == k_no_axis || tr.plane_class == label) {
            add_sharp_edge(site, tr, i);
        }
    }
}

// An exchange sort, not a stable one: the order of equals is part of the result.
void sort_candidates()
{
    collapse_rec* recs = candidates.recs;
    for (int i = 0; i + 1 < candidates.count; ++i) {
        for (int j = i + 1; j < candidates.count; ++j) {
            if (!(recs[i].max_dist > recs[j].max_dist)) continue;
            const collapse_rec swap = recs[i];
            recs[i] = recs[j];
            recs[j] = swap;
        }
    }
}

bool candidate_ok(const reduce_params& params, const collapse_rec& moved, const collapse_rec& base)
{
    if (moved.max_dist > params.dist_tol) return false;
    if (base.tr_count == k_always_worth) return true;
    if (moved.bad_count != base.bad_count) return moved.bad_count < base.bad_count;
    return base.worst_cos > moved.worst_cos;
}

// What has piled up on the vertex, carried on to T: displacement along the vertex' normal by the
// height of the move over either tangent plane, whichever makes more of it.
void pile_up(const vtx_site& site, const vtx_info& other, float* out)
{
    float unit[3];
    vec_copy(site.info->moved, out);
    vec_diff(rec(site.v).pos, rec(other.vtx).pos, unit);
    const double len = vec_len(unit);
    if (!vec_unit_checked(unit)) return;
    const float own = static_cast<float>(vec_dot(site.info->nrm, unit) * len);
    const float others = static_cast<float>(vec_dot(other.nrm, unit) * len);
    float a[3];
    float b[3];
    vec_scale(site.info->nrm, own, a);
    vec_add(site.info->moved, a, a);
    vec_scale(site.info->nrm, others, b);
    vec_add(site.info->moved, b, b);
    vec_copy(vec_len(b) > vec_len(a) ? b : a, out);
}

bool displacement_ok(const vtx_site& site, const vtx_info& other, float* out)
{
    pile_up(site, other, out);
    return !(vec_len(out) > site.params->dist_tol);
}

enum class verdict {
    next,  // try the next candidate
    stop,  // the vertex stays
    taken, // the vertex went
};

verdict try_candidate(const vtx_site& site, int label, const collapse_rec& moved,
                      const collapse_rec& base, const vtx_site& other)
{
    float displacement[3] = {0.0f, 0.0f, 0.0f};
    const bool free_axis = label == k_all_one_axis;
    if (!free_axis && !displacement_ok(site, *other.info, displacement)) return verdict::next;
    if (!candidate_ok(*site.params, moved, base)) return verdict::next;
    if (!trial_passes(site, moved.target, test_normals))
        return free_axis ? verdict::next : verdict::stop;
    vec_add(other.info->moved, displacement, other.info->moved);
    vtx_commit(site, moved.target);
    return verdict::taken;
}

bool apply_candidate(const vtx_site& site, int label, const collapse_rec& base)
{
    for (int k = 0; k < candidates.count; ++k) {
        const collapse_rec& moved = candidates.recs[k];
        const std::uint32_t index = rec(moved.target).tbl_index;
        if (index == 0) continue; // a one-sided link led to a triangle that is not in the tree
        const vtx_site other = site_of(site.table, *site.params, index - 1);
        const verdict v = try_candidate(site, label, moved, base, other);
        if (v == verdict::stop) return false;
        if (v == verdict::next) continue;
        lock_fan(site);
        lock_fan(other);
        site.table->types[site.place] = vtx_removed;
        return true;
    }
    return false;
}

} // namespace

bool remove_aspect(const vtx_site& site)
{
    if (vtx_fan_angles_ok(site)) return false;
    const collapse_rec base = eval_collapse(site, {});
    const int label = fan_axis_label(site.fan);
    list_candidates(site, label);
    sort_candidates();
    return apply_candidate(site, label, base);
}

} // namespace velmora

-- SPDX-License-Identifier: Apache-2.0
-- What else the table of signatures says.
SELECT signature, min(kind) AS some_kind, count(*) AS all_episodes, min(begin) AS first_begin,
    max(begin) AS last_begin, sum(CASE WHEN outcome = 'open' THEN 1 ELSE 0 END) AS open_episodes
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND signature IN (:signatures)
GROUP BY signature
ORDER BY signature
